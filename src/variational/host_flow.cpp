#include "variational/host_flow.h"

#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "common/timer.h"
#include "variational/run_memory.h"
#include "variational/solver_timers.h"
#include "variational/variational_flow.h"

namespace vemo {

void variationalFlowVemo(Backend& backend, const float* frame1, const float* frame2, float* u, float* v,
                         const float* geoU, const float* geoV, const float* geoConf, int hypos, int height,
                         int width, int nChan, float sigma, float alpha, float beta, float gamma, float eta,
                         int fixedPointIterations, int solverIterations) {
  if (height < 1 || width < 1 || nChan < 1) {
    const std::string message = "variationalFlowVemo: invalid frame size " + std::to_string(width) + "x" +
                                std::to_string(height) + "x" + std::to_string(nChan);
    std::fprintf(stderr, "%s\n", message.c_str());
    throw std::invalid_argument(message);
  }
  if (!planeOffsetsFit(height, backend.pitchFor(width))) {
    const std::string message = "variationalFlowVemo: a " + std::to_string(width) + "x" + std::to_string(height) +
                                " frame is too large for 32-bit plane offsets";
    std::fprintf(stderr, "%s\n", message.c_str());
    throw std::invalid_argument(message);
  }
  stamp(start_memcpy);
  const int pitch = backend.pitchFor(width);
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  Buffer f1 = backend.allocate(nChan * plane);
  Buffer f2 = backend.allocate(nChan * plane);
  Buffer gu = backend.allocate(plane);
  Buffer gv = backend.allocate(plane);
  Buffer gc = backend.allocate(plane);
  // Padding columns are cleared so that no uninitialised memory is ever read.
  backend.clear(f1.data(), f1.floats());
  backend.clear(f2.data(), f2.floats());
  backend.clear(gu.data(), plane);
  backend.clear(gv.data(), plane);
  backend.clear(gc.data(), plane);
  backend.upload(f1.data(), pitch, frame1, width, nChan * height);
  backend.upload(f2.data(), pitch, frame2, width, nChan * height);
  backend.upload(gu.data(), pitch, geoU, width, height);
  backend.upload(gv.data(), pitch, geoV, width, height);
  backend.upload(gc.data(), pitch, geoConf, width, height);
  backend.synchronize();
  closeStretch(start_memcpy, finish_memcpy, timer_memcpy);

  FlowPlanes flow = gVariationalFlowVemo(backend, f1.data(), f2.data(), gu.data(), gv.data(), gc.data(), hypos,
                                         height, width, pitch, nChan, sigma, alpha, beta, gamma, eta,
                                         fixedPointIterations, solverIterations);

  stamp(start_memcpy);
  backend.download(u, flow.u.data(), flow.pitch, width, height);
  backend.download(v, flow.v.data(), flow.pitch, width, height);
  backend.synchronize();
  closeStretch(start_memcpy, finish_memcpy, timer_memcpy);
  std::printf("memcpy time = %f ms\n", timer_memcpy);
}

}  // namespace vemo
