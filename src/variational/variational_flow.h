// Coarse-to-fine variational flow on a backend.
#pragma once

#include "backends/backend.h"
#include "pixel/diffusivity.h"

namespace vemo {

// Choices of the variational part beyond the method's parameters: its
// coarse-to-fine schedule and the epsilon of the smoothness weights. The
// defaults are the method's own.
struct VariationalSettings {
  // Full-size passes after the pyramid, without the match term and with
  // twice the solver iterations.
  int extraPasses = 5;
  // Their fixed-point iterations; below 0: as the levels'.
  int extraFixedPointIterations = -1;
  // The finest pyramid level solved (0: full size). Its flow is enlarged to
  // full size for the extra passes, or as the result.
  int finestLevel = 0;
  // Epsilon of the smoothness weights 1 / sqrt(S + epsilon)
  // (pixel/diffusivity.h).
  double smoothnessEpsilon = kRobustEpsilon;
};

// The flow of a run: two single planes of the full frame in backend memory.
struct FlowPlanes {
  Buffer u;
  Buffer v;
  int pitch = 0;
};

// Dense flow from frame 1 to frame 2 (nChan planes each, full frame of
// height x width with `pitch` floats per row, presmoothed by the caller),
// given the match field geoU, geoV (displacements in pixels) and geoConf
// (weights, 0 where there is no match). Runs the pyramid from the coarsest
// level to full size, then (by default) five more full-size passes without
// the match term and with twice the solver iterations. The inputs are not
// modified.
//
// Prints "# scales = N" at the start and the accumulated solver, assembly,
// interpolation and downsampling times at the end. `hypos` is forwarded to
// the fixed-point iteration. sigma > 0 is not supported (the caller
// presmooths) and only reported. Invalid sizes, pitch, channel count or eta
// are refused with a message on stderr and an exception.
FlowPlanes gVariationalFlowVemo(Backend& backend, const float* frame1, const float* frame2, const float* geoU,
                                const float* geoV, const float* geoConf, int hypos, int height, int width,
                                int pitch, int nChan, float sigma, float alpha, float beta, float gamma, float eta,
                                int fixedPointIterations, int solverIterations,
                                const VariationalSettings& settings = {});

}  // namespace vemo
