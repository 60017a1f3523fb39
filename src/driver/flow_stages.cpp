// Placeholder for the matching and solver stages: until the backends are
// wired in, a run yields the zero flow. Only this file changes when they are.
#include "driver/flow_stages.h"

#include "common/timer.h"

void computeFlowOnBackend(const CTensor<float>& frame1, const CTensor<float>& frame2,
                          CTensor<float>& flow, const FlowParameters& params) {
  vemo::stamp(start_memcpy1);
  // Upload of both frames goes here.
  vemo::closeStretch(start_memcpy1, finish_memcpy1, timer_memcpy1);

  vemo::stamp(start_HOG);
  // Descriptor matching goes here.
  vemo::closeStretch(start_HOG, finish_HOG, timer_HOG);

  vemo::stamp(start_var);
  // The coarse-to-fine variational solver goes here.
  vemo::closeStretch(start_var, finish_var, timer_var);

  vemo::stamp(start_memcpy1);
  flow = CTensor<float>(frame1.xSize, frame1.ySize, 2, 0.0f);
  vemo::closeStretch(start_memcpy1, finish_memcpy1, timer_memcpy1);
}
