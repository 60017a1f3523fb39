// The coarse-to-fine solver for inputs and outputs in host memory.
#pragma once

#include "backends/backend.h"

namespace vemo {

// Same computation as gVariationalFlowVemo for dense host arrays (rows of
// `width` floats): frames of nChan * height rows, match planes and the result
// planes u, v of height rows. Copies the inputs into the backend, runs the
// solver, copies u and v back, adds the copy times to timer_memcpy and prints
// "memcpy time = ... ms".
void variationalFlowVemo(Backend& backend, const float* frame1, const float* frame2, float* u, float* v,
                         const float* geoU, const float* geoV, const float* geoConf, int hypos, int height,
                         int width, int nChan, float sigma, float alpha, float beta, float gamma, float eta,
                         int fixedPointIterations, int solverIterations);

}  // namespace vemo
