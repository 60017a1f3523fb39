#include "flow_tools.h"

#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include "arrays.h"
#include "backends/cuda/device_probe.h"
#include "driver/flow_metrics.h"
#include "driver/flow_picture.h"
#include "image/exceptions.h"
#include "image/png_io.h"
#include "image/read_image.h"

namespace vemopy {

namespace {

// The frame as vemo-flow reads it: float32 H x W x 3, values 0..255.
nb::ndarray<nb::numpy, float> readFrame(const std::string& path) {
  CTensor<float> frame;
  try {
    nb::gil_scoped_release released;
    NImageIO::readImage(path, frame);
  } catch (const EFileNotFound&) {
    PyErr_SetString(PyExc_OSError, ("cannot read " + path + " (the reason is on standard error)").c_str());
    throw nb::python_error();
  } catch (const EInvalidFileFormat&) {
    throw nb::value_error(("cannot decode " + path + " as a PNG, JPEG or binary PGM/PPM frame").c_str());
  }
  return tensorToArray(frame);
}

nb::ndarray<nb::numpy, uint8_t> flowToRgb(const AnyArray& flowArray, float maxFlow) {
  const CTensor<float> flow = flowFromArray(flowArray, "flow");
  if (!(maxFlow >= 0.0f)) throw nb::value_error("max_flow must be above 0");
  CTensor<float> picture;
  {
    nb::gil_scoped_release released;
    picture = flowPicture(flow, maxFlow, false);
  }
  return pictureToArray(picture);
}

nb::dict evaluate(const AnyArray& flowArray, const AnyArray& truthArray) {
  const CTensor<float> flow = flowFromArray(flowArray, "flow");
  const CTensor<float> truth = flowFromArray(truthArray, "truth");
  if (flow.xSize != truth.xSize || flow.ySize != truth.ySize) {
    throw nb::value_error(("flow is " + std::to_string(flow.xSize) + " x " + std::to_string(flow.ySize) +
                           " but truth is " + std::to_string(truth.xSize) + " x " + std::to_string(truth.ySize))
                              .c_str());
  }
  FlowMetrics m;
  {
    nb::gil_scoped_release released;
    m = evaluateFlow(flow, truth);
  }
  // The keys and meanings of vemo-eval --json.
  nb::dict d;
  d["width"] = m.width;
  d["height"] = m.height;
  d["known_pixels"] = m.known;
  d["nonfinite_pixels"] = m.nonFinite;
  d["missing_vectors"] = m.missing;
  d["measured_vectors"] = m.measured;
  d["epe"] = m.epe;
  d["aae"] = m.aae;
  d["angular_error"] = m.angularError;
  d["over_1px"] = m.over1;
  d["over_3px"] = m.over3;
  const char* bands[3] = {"s0_10", "s10_40", "s40plus"};
  for (int b = 0; b < 3; ++b) {
    d[(std::string("epe_") + bands[b]).c_str()] = m.bandEpe[b];
    d[(std::string("pixels_") + bands[b]).c_str()] = m.bandPixels[b];
  }
  return d;
}

void writePng(const AnyArray& pictureArray, const std::string& path) {
  const CTensor<float> picture = frameFromArray(pictureArray, "picture");
  nb::gil_scoped_release released;
  NImageIO::writePNG(picture, path.c_str());
}

int cudaDevices() {
  const vemo::CudaProbe& probe = vemo::probeCudaDevice();
  return probe.usable ? probe.devices : 0;
}

}  // namespace

void bindFlowTools(nb::module_& m) {
  m.def("read_frame", &readFrame, nb::arg("path"));
  m.def("flow_to_rgb", &flowToRgb, nb::arg("flow"), nb::arg("max_flow"));
  m.def("evaluate", &evaluate, nb::arg("flow"), nb::arg("truth"));
  m.def("write_png", &writePng, nb::arg("picture"), nb::arg("path"));
  m.def("cuda_devices", &cudaDevices);
}

}  // namespace vemopy
