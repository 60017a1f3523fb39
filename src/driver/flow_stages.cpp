// Upload, matching, the coarse-to-fine solver and download, on the backend of
// this build.
#include "driver/flow_stages.h"

#include <cstddef>
#include <memory>

#include "common/timer.h"
#include "backends/backend_factory.h"
#include "variational/run_memory.h"
#include "variational/variational_flow.h"
#include "matching/hog_match_driver.h"

void computeFlowOnBackend(const CTensor<float>& frame1, const CTensor<float>& frame2,
                          CTensor<float>& flow, const FlowParameters& params) {
  std::unique_ptr<vemo::Backend> backend = vemo::makeBackend();
  computeFlowOnBackend(*backend, frame1, frame2, flow, params);
}

void computeFlowOnBackend(vemo::Backend& backendRef, const CTensor<float>& frame1,
                          const CTensor<float>& frame2, CTensor<float>& flow,
                          const FlowParameters& params) {
  const int width = frame1.xSize, height = frame1.ySize, channels = frame1.zSize;
  vemo::Backend* backend = &backendRef;
  const int pitch = backend->pitchFor(width);
  vemo::refuseIfTooLarge(*backend, height, width, pitch, channels);

  vemo::stamp(start_memcpy1);
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  vemo::Buffer image1 = backend->allocate(channels * plane);
  vemo::Buffer image2 = backend->allocate(channels * plane);
  vemo::Buffer geoU = backend->allocate(plane);
  vemo::Buffer geoV = backend->allocate(plane);
  vemo::Buffer geoConf = backend->allocate(plane);
  backend->clear(image1.data(), image1.floats());
  backend->clear(image2.data(), image2.floats());
  backend->upload(image1.data(), pitch, frame1.data, width, channels * height);
  backend->upload(image2.data(), pitch, frame2.data, width, channels * height);
  vemo::closeStretch(start_memcpy1, finish_memcpy1, timer_memcpy1);

  vemo::stamp(start_HOG);
  // Fills geoU, geoV, geoConf (all zero where there is no consistent match).
  vemo::gCreateAndMatchHOG(*backend, image1.data(), image2.data(), geoU.data(), geoV.data(), geoConf.data(), height,
                           width, pitch, channels, params.matching);
  vemo::closeStretch(start_HOG, finish_HOG, timer_HOG);

  vemo::stamp(start_var);
  vemo::FlowPlanes result = vemo::gVariationalFlowVemo(
      *backend, image1.data(), image2.data(), geoU.data(), geoV.data(), geoConf.data(), 1, height, width, pitch,
      channels, 0.0f, params.alpha, params.beta, params.gamma, params.eta, params.fixedPointIterations,
      params.solverIterations, params.variational);
  vemo::closeStretch(start_var, finish_var, timer_var);

  vemo::stamp(start_memcpy1);
  flow = CTensor<float>(width, height, 2, 0.0f);
  backend->download(flow.data, result.u.data(), result.pitch, width, height);
  backend->download(flow.data + static_cast<std::size_t>(width) * height, result.v.data(), result.pitch, width,
                    height);
  vemo::closeStretch(start_memcpy1, finish_memcpy1, timer_memcpy1);
}
