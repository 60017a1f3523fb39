// Red-black SOR and point Gauss-Seidel solvers for the system of one
// fixed-point step (pixel/system_matrix.h), kept beside the conjugate
// gradient as alternatives. The flow path does not call them.
#pragma once

#include "backends/backend.h"
#include "backends/extra_stages.h"

// Processor time spent in SORIterations, in clock() ticks, accumulated over
// the process and never reset.
extern thread_local double sortimer;

namespace vemo {

// `iterations` sweeps over the planes in `stages`' memory, each a pass over
// colour 0 followed by a pass over colour 1 (nothing for iterations <= 0).
// du and dv are single planes of `pitch`, updated in place; rhs has two.
void gRedBlack(ExtraStages& stages, const float* devMatrix, const float* rhs, float* du, float* dv, int height,
               int width, int pitch, int iterations, float omega);
// The same with the executor that belongs to `backend`.
void gRedBlack(Backend& backend, const float* devMatrix, const float* rhs, float* du, float* dv, int height,
               int width, int pitch, int iterations, float omega);

// Red-black SOR on host arrays with rows of `width` floats: matrix of
// 12 * height rows (twelve planes), rhs of 2 * height rows, `initial` the
// starting du plane followed by the dv plane. Runs on the backend of
// makeBackend() and writes the result to du and dv (width * height floats
// each). Adds the processor time spent to sortimer.
void SORIterations(const float* matrix, const float* rhs, float* du, float* dv, const float* initial, int height,
                   int width, float omega, int iterations);

// Point Gauss-Seidel in place on host arrays (plane stride width * height):
// pixels row by row, du then dv of each pixel, du <- (1 - omega) du +
// omega (rhs1 - s1 - a12 dv) / a11 and likewise dv with the new du, a12 from
// plane 1. Prints "0 r" before and "k r" after sweep k, r being
// computeResidual. A zero diagonal entry divides by zero (inf or NaN, no
// trap).
void GaussSeidel(const float* matrix, const float* rhs, float* du, float* dv, int height, int width, float omega,
                 int iterations);

// Euclidean norm of rhs - A (du, dv) for host arrays laid out as for
// GaussSeidel, evaluated by the backend's residual pass and dot product.
float computeResidual(const float* matrix, const float* rhs, const float* du, const float* dv, int height,
                      int width);

}  // namespace vemo
