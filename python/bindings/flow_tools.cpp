#include "flow_tools.h"

#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include "arrays.h"
#include "cancel.h"
#include "vemo/cancel.hpp"

namespace vemopy {

namespace {

// The frame as vemo-flow reads it: float32 H x W x 3, values 0..255.
nb::object readFrame(const std::string& path) {
  vemo::Image frame;
  {
    nb::gil_scoped_release released;
    frame = vemo::read_image(path);
  }
  return imageToArray(frame);
}

nb::object flowToRgb(const AnyArray& flowArray, float maxFlow, const CancelFlag* cancel) {
  const vemo::Flow flow = flowFromArray(flowArray, "flow");
  vemo::Image picture;
  {
    nb::gil_scoped_release released;
    const vemo::CancelScope scope(flagOf(cancel));
    picture = vemo::flow_to_rgb(flow, maxFlow);
  }
  return imageToArray(picture);
}

nb::dict evaluate(const AnyArray& flowArray, const AnyArray& truthArray) {
  const vemo::Flow flow = flowFromArray(flowArray, "flow");
  const vemo::Flow truth = flowFromArray(truthArray, "truth");
  vemo::Evaluation m;
  {
    nb::gil_scoped_release released;
    m = vemo::evaluate(flow, truth);
  }
  // The keys and meanings of vemo-eval --json.
  nb::dict d;
  d["width"] = m.width;
  d["height"] = m.height;
  d["known_pixels"] = m.known_pixels;
  d["nonfinite_pixels"] = m.nonfinite_pixels;
  d["missing_vectors"] = m.missing_vectors;
  d["measured_vectors"] = m.measured_vectors;
  d["epe"] = m.epe;
  d["aae"] = m.aae;
  d["angular_error"] = m.angular_error;
  d["over_1px"] = m.over_1px;
  d["over_3px"] = m.over_3px;
  const char* bands[3] = {"s0_10", "s10_40", "s40plus"};
  for (int b = 0; b < 3; ++b) {
    d[(std::string("epe_") + bands[b]).c_str()] = m.band_epe[b];
    d[(std::string("pixels_") + bands[b]).c_str()] = m.band_pixels[b];
  }
  return d;
}

void writePng(const AnyArray& pictureArray, const std::string& path) {
  FrameArray picture;
  viewFrame(pictureArray, "picture", picture);
  nb::gil_scoped_release released;
  vemo::write_image(path, picture.view);
}

}  // namespace

void bindFlowTools(nb::module_& m) {
  m.def("read_frame", &readFrame, nb::arg("path"));
  m.def("flow_to_rgb", &flowToRgb, nb::arg("flow"), nb::arg("max_flow"), nb::arg("cancel").none() = nb::none());
  m.def("evaluate", &evaluate, nb::arg("flow"), nb::arg("truth"));
  m.def("write_png", &writePng, nb::arg("picture"), nb::arg("path"));
}

}  // namespace vemopy
