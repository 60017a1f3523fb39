// The flow pipeline driver.
#pragma once

#include "image/tensor.h"

// Computes the flow from frame1 to frame2 (both W x H x K, K channels of
// 0..255 values) into flow, which becomes W x H x 2 (u, v in pixels). Both
// frames are presmoothed in place with a recursive Gaussian of std. deviation
// sigma when sigma > 0. Prints five timing lines whose accumulators are never
// reset. Frames of different sizes, or with fewer than two pixels in a
// dimension or no channel, print a message and throw ETensorIncompatibleSize.
void runFlowGPU(CTensor<float>& frame1, CTensor<float>& frame2, CTensor<float>& flow, float sigma,
                float alpha, float beta, float gamma, float eta, int fixedPointIterations,
                int solverIterations);

// Sets every stage-time accumulator of the pipeline, the matching and the
// solver to zero, so that the next run prints its own times instead of sums
// over the process.
void resetStageTimers();
