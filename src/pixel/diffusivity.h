// Smoothness weights on the edges between neighbouring pixels.
//
// The weight of an edge is 1 / sqrt(S + epsilon), S being the squared
// gradient magnitude of the flow (u + du and v + dv together) at the edge's
// midpoint; the method's epsilon is 1e-6. A larger one bounds the weights (by
// 1 / sqrt(epsilon)), which makes the systems better conditioned and the
// solver converge in fewer iterations, at the price of smoothing the flow
// more where it is nearly constant.
// The along-edge derivative is a forward difference across the edge; the
// across-edge derivative is the mean of the central derivatives of the two
// pixels. S is accumulated one flow component at a time.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/convolve.h"

namespace vemo {

// The regularisation inside every robust weight of the method.
constexpr double kRobustEpsilon = 1e-6;

// Mean of two samples: single-precision sum, halved in double precision.
VEMO_INLINE float edgeMean(float a, float b) { return (float)(0.5 * (double)(a + b)); }

// Tap j of the central difference 0.5 * (f(x + 1) - f(x - 1)) that gives the
// across-edge derivatives.
VEMO_INLINE float centralDifferenceTap(int j) { return j == 0 ? -0.5f : j == 1 ? 0.0f : 0.5f; }

// Squared gradient on an edge: the along-edge difference d of the two
// samples, and the across-edge derivatives ga, gb of its two pixels.
VEMO_INLINE float edgeTerm(float d, float ga, float gb) {
  const float g = edgeMean(ga, gb);
  return fmaf(d, d, g * g);
}

// Contribution of one flow component to the edge between (x, y) and (x + 1, y),
// added into diffX at the left pixel. `grad` is the vertical central
// derivative of `channel`. Valid for x < width - 1.
VEMO_INLINE void gradientXPixel(float* diffX, const float* grad, const float* channel, int x, int y, int pitch) {
  const int i = y * pitch + x;
  diffX[i] = diffX[i] + edgeTerm(channel[i + 1] - channel[i], grad[i], grad[i + 1]);
}

// Same for the edge between (x, y) and (x, y + 1), added into diffY at the
// upper pixel; `grad` is the horizontal derivative. Valid for y < height - 1.
VEMO_INLINE void gradientYPixel(float* diffY, const float* grad, const float* channel, int x, int y, int pitch) {
  const int i = y * pitch + x;
  diffY[i] = diffY[i] + edgeTerm(channel[i + pitch] - channel[i], grad[i], grad[i + pitch]);
}

// Reciprocal robust magnitude, in double precision, rounded once.
VEMO_INLINE float inverseRobustNorm(float s, double epsilon = kRobustEpsilon) {
  return (float)(1.0 / ::sqrt((double)s + epsilon));
}

// normalize_kernel at one pixel: x <- 1 / sqrt(x + epsilon).
VEMO_INLINE void normalizePixel(float* x, int i, double epsilon = kRobustEpsilon) {
  x[i] = inverseRobustNorm(x[i], epsilon);
}

// One flow component plus its increment, f + df, along a line of the planes.
struct FlowSumLine {
  const float* f;
  const float* df;
  int step;
  VEMO_INLINE float operator()(int p) const { return f[p * step] + df[p * step]; }
};

// The whole diffusivity pass of one fixed-point step at (x, y), any pixel of
// the pitch x height planes, computed from u, v, du, dv alone: the values
// that clearing diffX and diffY, then per flow component c (u, then v)
// sum = c + dc, the central derivatives of sum along y and x (short-mask
// tile rule), gradientX / gradientY, and finally normalize leave at the
// pixel. Padding columns (x >= width) end as 0, the last column of diffX and
// the last row of diffY as the normalised 0.
VEMO_INLINE void diffusivityAt(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                               float* diffY, int x, int y, int height, int width, int pitch,
                               double epsilon = kRobustEpsilon) {
  const int i = y * pitch + x;
  if (x >= width) {
    diffX[i] = 0.0f;
    diffY[i] = 0.0f;
    return;
  }
  const float central[3] = {centralDifferenceTap(0), centralDifferenceTap(1), centralDifferenceTap(2)};
  const float* flow[2] = {u, v};
  const float* increment[2] = {du, dv};
  float sx = 0.0f, sy = 0.0f;
  for (int c = 0; c < 2; ++c) {
    const FlowSumLine row{flow[c] + y * pitch, increment[c] + y * pitch, 1};
    const FlowSumLine column{flow[c] + x, increment[c] + x, pitch};
    if (x < width - 1) {
      const FlowSumLine next{flow[c] + x + 1, increment[c] + x + 1, pitch};
      sx = sx + edgeTerm(row(x + 1) - row(x), convolveSmallOf(column, height, y, central, 3),
                         convolveSmallOf(next, height, y, central, 3));
    }
    if (y < height - 1) {
      const FlowSumLine below{flow[c] + (y + 1) * pitch, increment[c] + (y + 1) * pitch, 1};
      sy = sy + edgeTerm(column(y + 1) - column(y), convolveSmallOf(row, width, x, central, 3),
                         convolveSmallOf(below, width, x, central, 3));
    }
  }
  diffX[i] = inverseRobustNorm(sx, epsilon);
  diffY[i] = inverseRobustNorm(sy, epsilon);
}

// One flow component's terms of the two edges of interior index i, read from
// a plane `s` of its sums f + df: the central derivatives as plain
// correlations (convolveTapsAt), which is what the tile rule reads inside.
VEMO_INLINE void interiorEdgeTerms(const float* s, int i, int pitch, float& sx, float& sy) {
  const float central[3] = {centralDifferenceTap(0), centralDifferenceTap(1), centralDifferenceTap(2)};
  const StridedLine row{s + i, 1}, column{s + i, pitch};
  const StridedLine next{s + i + 1, pitch}, below{s + i + pitch, 1};
  sx = sx + edgeTerm(row(1) - row(0), convolveTapsAt(column, 0, central, 3), convolveTapsAt(next, 0, central, 3));
  sy = sy + edgeTerm(column(1) - column(0), convolveTapsAt(row, 0, central, 3), convolveTapsAt(below, 0, central, 3));
}

// diffusivityAt's two edge weights for a pixel with a neighbour on every side
// (0 < x < width - 1, 0 < y < height - 1), at index i of planes su and sv of
// the sums u + du and v + dv: there every tile entry of the central
// derivatives is the plain neighbouring sample, so the same chains read the
// sums directly (and a row of such pixels vectorises).
VEMO_INLINE void interiorWeights(const float* su, const float* sv, int i, int pitch, float& wx, float& wy,
                                 double epsilon = kRobustEpsilon) {
  float sx = 0.0f, sy = 0.0f;
  interiorEdgeTerms(su, i, pitch, sx, sy);
  interiorEdgeTerms(sv, i, pitch, sx, sy);
  wx = inverseRobustNorm(sx, epsilon);
  wy = inverseRobustNorm(sy, epsilon);
}

}  // namespace vemo
