// Block-Jacobi preconditioned conjugate gradient for the system of one
// fixed-point step (pixel/system_matrix.h).
#pragma once

#include <cstddef>

#include "backends/backend.h"
#include "method/pcg_steps.h"

namespace vemo {

// Everything the operations of a solve depend on, for recorded work.
RepeatKey repeatKeyOf(const SolveArgs& a);

// Refines (du, dv) in place, warm-starting from the values given, with at most
// `iterations` updates. du and dv must be consecutive planes (dv = du +
// pitch * height): the vector updates treat them as one image of 2 * height
// rows. The CGtmp buffers must hold two planes of at least pitch * height
// floats; the solver owns r, z, p, q and pNext during the call (cgPrepare's
// default clears them), the spare buffer is not touched. Nothing is read
// back: backend.cgIterations() tells the number of updates applied.
void gPCG(Backend& backend, const float* devMatrix, const float* b, float* du, float* dv, int height, int width,
          int pitch, int iterations, const CGtmp& tmp);

}  // namespace vemo
