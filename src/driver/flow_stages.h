// The stages of a flow run that follow presmoothing: upload of the frames,
// descriptor matching, the coarse-to-fine variational solver and download
// of the result. The pipeline driver calls this once per run.
#pragma once

#include "image/tensor.h"
#include "matching/match_settings.h"
#include "variational/variational_flow.h"

namespace vemo {
class Backend;
}

struct FlowParameters {
  float alpha;               // smoothness weight
  float beta;                // weight of the descriptor-matching term
  float gamma;               // weight of gradient constancy
  float eta;                 // pyramid scaling factor
  int fixedPointIterations;  // outer iterations per level
  int solverIterations;      // linear-solver iterations per outer iteration
  // Knobs beyond the method's seven parameters; their defaults keep the
  // method exactly as it is.
  vemo::MatchSettings matching = {};
  vemo::VariationalSettings variational = {};
};

// Computes the flow from frame1 to frame2 (already presmoothed; same width,
// height and channel count, checked by the caller) into flow, which becomes
// W x H x 2. Accumulates the transfer, matching and solver stretches in
// timer_memcpy1, timer_HOG and timer_var.
void computeFlowOnBackend(const CTensor<float>& frame1, const CTensor<float>& frame2,
                          CTensor<float>& flow, const FlowParameters& params);

// The same on a given backend, which callers keep across runs (a sequence
// of frame pairs) or choose themselves (tests). Refuses frames whose run
// would not fit in the backend's memory before allocating anything.
void computeFlowOnBackend(vemo::Backend& backend, const CTensor<float>& frame1,
                          const CTensor<float>& frame2, CTensor<float>& flow,
                          const FlowParameters& params);

// The whole pipeline of runFlowGPU (frame checks, presmoothing with sigma,
// the stages above, the five timing lines) on a backend the caller keeps, so
// that a sequence of pairs reuses the backend's buffers.
void runFlowOnBackend(vemo::Backend& backend, CTensor<float>& frame1, CTensor<float>& frame2,
                      CTensor<float>& flow, float sigma, const FlowParameters& params);
