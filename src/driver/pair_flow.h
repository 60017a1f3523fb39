// The flows of one frame pair on a backend the caller keeps across pairs:
// what vemo-flow computes for each pair and what the Python module's Engine
// returns.
#pragma once

#include "driver/flow_stages.h"
#include "image/tensor.h"

namespace vemo {
class Backend;
}

// The flow from `from` to `to`: the whole pipeline of runFlowOnBackend
// (frame checks, presmoothing with sigma, the stages, the timing lines) on
// copies of the frames, since presmoothing works in place.
CTensor<float> flowBetween(vemo::Backend& backend, const CTensor<float>& from, const CTensor<float>& to,
                           float sigma, const FlowParameters& params);

struct PairFlow {
  CTensor<float> forward;     // frame 1 -> frame 2
  CTensor<float> backward;    // frame 2 -> frame 1; empty unless asked for
  CTensor<float> occlusions;  // W x H x 1 mask of occlusionMask(); empty unless asked for
};

// The forward flow and, when asked, the backward flow (computed from the
// frames as given, not from the smoothed copies of the forward run) and the
// occlusion mask, which needs the backward flow.
PairFlow computePairFlow(vemo::Backend& backend, const CTensor<float>& frame1, const CTensor<float>& frame2,
                         float sigma, const FlowParameters& params, bool backward, bool occlusions);
