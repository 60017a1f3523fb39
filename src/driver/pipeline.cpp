// The flow pipeline driver: presmoothing on the host, then the backend
// stages, then the five timing lines. Timers accumulate over the process
// lifetime, so a second run prints sums over both runs.
#include <cstdio>
#include <memory>

#include "common/diagnostics.h"
#include "common/stage_lines.h"
#include "common/timer.h"
#include "driver/flow_stages.h"
#include "driver/run_flow.h"
#include "backends/backend_factory.h"
#include "image/exceptions.h"
#include "image/recursive_smooth.h"
#include "matching/hog_match_driver.h"
#include "variational/solver_timers.h"
#include "variational/run_memory.h"

namespace {

// The solver needs at least 2 x 2 pixels (central differences, a pyramid
// level) and both frames on the same grid with the same channels.
void checkFrames(const CTensor<float>& frame1, const CTensor<float>& frame2) {
  if (frame1.xSize != frame2.xSize || frame1.ySize != frame2.ySize ||
      frame1.zSize != frame2.zSize) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: frames differ in size: %d x %d x %d and "
                 "%d x %d x %d\n",
                 frame1.xSize, frame1.ySize, frame1.zSize, frame2.xSize, frame2.ySize,
                 frame2.zSize);
    throw ETensorIncompatibleSize();
  }
  if (frame1.xSize < 2 || frame1.ySize < 2 || frame1.zSize < 1 || frame1.data == nullptr ||
      frame2.data == nullptr) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: frames of %d x %d x %d are too small; at "
                 "least 2 x 2 pixels and one channel are needed\n",
                 frame1.xSize, frame1.ySize, frame1.zSize);
    throw ETensorIncompatibleSize();
  }
}

}  // namespace

void runFlowGPU(CTensor<float>& frame1, CTensor<float>& frame2, CTensor<float>& flow, float sigma,
                float alpha, float beta, float gamma, float eta, int fixedPointIterations,
                int solverIterations) {
  checkFrames(frame1, frame2);
  std::unique_ptr<vemo::Backend> backend = vemo::makeBackend();
  runFlowOnBackend(*backend, frame1, frame2, flow, sigma,
                   FlowParameters{alpha, beta, gamma, eta, fixedPointIterations, solverIterations});
}

void runFlowOnBackend(vemo::Backend& backend, CTensor<float>& frame1, CTensor<float>& frame2,
                      CTensor<float>& flow, float sigma, const FlowParameters& params) {
  checkFrames(frame1, frame2);
  // A run that cannot fit is refused before any host work on its frames.
  vemo::refuseIfTooLarge(backend, frame1.ySize, frame1.xSize, backend.pitchFor(frame1.xSize), frame1.zSize);

  vemo::stamp(start_total);
  vemo::stamp(start_filter);
  if (sigma > 0) {
    NFilter::recursiveSmoothX(frame1, sigma);
    NFilter::recursiveSmoothY(frame1, sigma);
    NFilter::recursiveSmoothX(frame2, sigma);
    NFilter::recursiveSmoothY(frame2, sigma);
  }
  vemo::closeStretch(start_filter, finish_filter, timer_filter);

  computeFlowOnBackend(backend, frame1, frame2, flow, params);

  vemo::closeStretch(start_total, finish_total, timer_total);

  vemo::stageLine("Memcpy time = %f \n", timer_memcpy1);
  vemo::stageLine("Filter time = %f \n", timer_filter);
  vemo::stageLine("HOG time = %f \n", timer_HOG);
  vemo::stageLine("Var time = %f \n", timer_var);
  vemo::stageLine("Total time = %f \n", timer_total);
}

void resetStageTimers() {
  for (double* t : {&timer_filter, &timer_memcpy1, &timer_HOG, &timer_var, &timer_total, &timer_makematrix,
                    &timer_solver, &timer_interp_warp, &timer_down, &timer_memcpy, &timer_hogc, &timer_hogmatch})
    *t = 0.0;
}
