// Gaussian filters of images in backend memory, beside the one-dimensional
// correlations of Backend. The flow path does not call them.
#pragma once

#include "backends/backend.h"

namespace vemo {

// Gaussian smoothing with the mask of GaussianFilterCreate(sigma), along x,
// then along y, result in `out` (out == in allowed). The horizontal pass
// treats each whole padded row (`pitch` columns) as the image: near the right
// edge it reads the padding columns, and clamps at column pitch - 1 rather
// than width - 1. The vertical pass clamps at row height - 1. Only columns
// below width of `out` are written.
void gGaussianFilter(Backend& backend, float* out, const float* in, int height, int width, int pitch, float sigma);

// One pass of the derivative mask of GaussianDerivativeFilterCreate(sigma)
// over a dense plane (row stride = width): along x when dir is 'x', along y
// otherwise, clamped at the edges. out == in allowed.
void gGaussianDerivativeFilter(Backend& backend, float* out, const float* in, int height, int width, float sigma,
                               char dir);

}  // namespace vemo
