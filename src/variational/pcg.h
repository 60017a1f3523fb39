// Block-Jacobi preconditioned conjugate gradient for the system of one
// fixed-point step (pixel/system_matrix.h).
#pragma once

#include "backends/backend.h"
#include "variational/scratch.h"
#include "pixel/cg_scalars.h"

namespace flowcore {

// Refines (du, dv) in place, warm-starting from the values given, with at most
// `iterations` updates. du and dv must be consecutive planes (dv = du +
// pitch * height): the vector updates treat them as one image of 2 * height
// rows. The CGtmp buffers must hold two planes of at least pitch * height
// floats; r, z, p, q and pNext are cleared here, the spare buffer is not
// touched.
// Returns the number of updates applied.
int gPCG(Backend& backend, const float* devMatrix, const float* b, float* du, float* dv, int height, int width,
         int pitch, int iterations, const CGtmp& tmp);

}  // namespace flowcore
