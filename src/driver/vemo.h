// Entry points of the flow pipeline and the error measure the command line
// prints.
#pragma once

#include "driver/run_flow.h"
#include "image/tensor.h"

namespace vemo {

// Forward flow (frame1 -> frame2), then backward flow (frame2 -> frame1), on
// the same two private copies of the frames: with sigma > 0 the backward run
// sees frames smoothed twice.
void vemo(CTensor<float> frame1, CTensor<float> frame2, CTensor<float>& forward,
          CTensor<float>& backward, float sigma, float alpha, float beta, float gamma, float eta,
          int fixedPointIterations, int solverIterations);

// The same with sigma 0 (no presmoothing), alpha 30, beta 300, gamma 5,
// eta 0.95, 5 fixed-point and 10 solver iterations.
void vemo(CTensor<float> frame1, CTensor<float> frame2, CTensor<float>& forward,
          CTensor<float>& backward);

}  // namespace vemo

// Average angle in degrees between the directions of flow and reference
// vectors (magnitudes do not enter). Pixels whose reference component is
// >= 1e9 (unknown) are skipped but still counted in the divisor W x H. Flow
// and reference must both be W x H with two planes; otherwise prints a
// message and throws ETensorIncompatibleSize.
float aae(CTensor<float> flow, CTensor<float> reference);
