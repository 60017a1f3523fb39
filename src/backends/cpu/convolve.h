// Separable and 2-D convolution of host planes laid out like device images
// (row stride `pitch` floats >= width; only columns < width are data and only
// they are written). Masks are correlations: tap j weights offset
// j - length/2. Masks longer than the device's 4096-float mask store are
// refused (message on stderr, std::invalid_argument).
#pragma once

#include "method/filter_masks.h"

namespace vemo::cpu {

using ::vemo::kMaxMaskLength;

// Horizontal pass. Distinct buffers and length < 8: the tiled short-mask rule
// (borders depend on the 16-column blocks). Otherwise, including out == in:
// clamp to the edge column.
void gConvolveX(float* out, const float* in, int height, int width, int pitch, const float* mask, int length);

// Vertical pass, the transpose of gConvolveX (16-row blocks).
void gConvolveY(float* out, const float* in, int height, int width, int pitch, const float* mask, int length);

// Gaussian smoothing with GaussianFilterCreate(sigma): along x, then along y,
// both with clamp-to-edge borders at column width - 1 and row height - 1.
// out == in is allowed.
void gGaussianFilter(float* out, const float* in, int height, int width, int pitch, float sigma);

// One pass of the derivative mask of GaussianDerivativeFilterCreate(sigma)
// over a dense plane (row stride = width), along x when dir is 'x', along y
// otherwise; clamp-to-edge borders. out == in is allowed.
void gGaussianDerivativeFilter(float* out, const float* in, int height, int width, float sigma, char dir);

// Dense 2-D correlation with a row-major filt_height x filt_width mask and
// clamp-to-edge borders; a mask with filt_width == 1 is applied as a 1-D mask
// of filt_height taps along x and then along y. Sizes of out and in must
// match (message on stderr, std::invalid_argument otherwise).
void Convolve2d(float* out, int out_height, int out_width, const float* in, int in_height, int in_width,
                const float* filter, int filt_height, int filt_width);

}  // namespace vemo::cpu
