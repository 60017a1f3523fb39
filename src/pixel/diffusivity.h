// Smoothness weights on the edges between neighbouring pixels.
//
// The weight of an edge is 1 / sqrt(S + 1e-6), S being the squared gradient
// magnitude of the flow (u + du and v + dv together) at the edge's midpoint.
// The along-edge derivative is a forward difference across the edge; the
// across-edge derivative is the mean of the central derivatives of the two
// pixels. S is accumulated one flow component at a time.
#pragma once

#include <cmath>

#include "common/hd.h"

namespace flowcore {

// The regularisation inside every robust weight of the method.
constexpr double kRobustEpsilon = 1e-6;

// Mean of two samples: single-precision sum, halved in double precision.
VEMO_INLINE float edgeMean(float a, float b) { return (float)(0.5 * (double)(a + b)); }

// Contribution of one flow component to the edge between (x, y) and (x + 1, y),
// added into diffX at the left pixel. `grad` is the vertical central
// derivative of `channel`. Valid for x < width - 1.
VEMO_INLINE void gradientXPixel(float* diffX, const float* grad, const float* channel, int x, int y, int pitch) {
  const int i = y * pitch + x;
  const float dx = channel[i + 1] - channel[i];
  const float gy = edgeMean(grad[i], grad[i + 1]);
  diffX[i] = diffX[i] + fmaf(dx, dx, gy * gy);
}

// Same for the edge between (x, y) and (x, y + 1), added into diffY at the
// upper pixel; `grad` is the horizontal derivative. Valid for y < height - 1.
VEMO_INLINE void gradientYPixel(float* diffY, const float* grad, const float* channel, int x, int y, int pitch) {
  const int i = y * pitch + x;
  const float dy = channel[i + pitch] - channel[i];
  const float gx = edgeMean(grad[i], grad[i + pitch]);
  diffY[i] = diffY[i] + fmaf(dy, dy, gx * gx);
}

// Reciprocal robust magnitude, in double precision, rounded once.
VEMO_INLINE float inverseRobustNorm(float s) { return (float)(1.0 / ::sqrt((double)s + kRobustEpsilon)); }

// normalize_kernel at one pixel: x <- 1 / sqrt(x + 1e-6).
VEMO_INLINE void normalizePixel(float* x, int i) { x[i] = inverseRobustNorm(x[i]); }

}  // namespace flowcore
