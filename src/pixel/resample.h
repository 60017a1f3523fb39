// Per-pixel pyramid resampling: area-weighted reduction (plain and weighted
// by a confidence plane) and bilinear enlargement.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/sample.h"

namespace vemo {

// Footprint of one output index along one axis of a reduction from `size`
// to `newsize` samples: the source interval [t0, t1) with t0 = f * pos and
// t1 = f * (pos + 1), f = size / newsize (single precision), and the first
// and last source cells it touches. The same spans serve every pixel of an
// output row or column.
struct AreaSpan {
  float t0, t1;
  int first, last;
};

VEMO_INLINE AreaSpan areaSpan(int size, int newsize, int pos) {
  const float f = (float)size / (float)newsize;
  AreaSpan s;
  s.t0 = f * (float)pos;
  s.t1 = f * (float)(pos + 1);
  s.first = (int)floorf(s.t0);
  s.last = (int)floorf(s.t1);
  // The first cell is always visited; keep it inside the source even if a
  // rounding quirk put the footprint's start on the far edge.
  if (s.first > size - 1) s.first = size - 1;
  return s;
}

// Covered fraction of the first cell (1 for cells the footprint starts
// before) and of the last cell (1 for the others), along one axis.
VEMO_INLINE float areaLeadFactor(const AreaSpan& s, int i) {
  return (s.t0 - (float)i > 0.0f) ? (float)i + (1.0f - s.t0) : 1.0f;
}
VEMO_INLINE float areaTailFactor(const AreaSpan& s, int i) { return i == s.last ? s.t1 - (float)s.last : 1.0f; }

// Weight of source cell (i, j): ((x lead * y lead) * y tail) * x tail, in
// that order; absent factors are 1, which multiplies exactly. The first-cell
// and last-cell fractions apply independently, so a footprint that starts
// and ends in one cell gets the product of both, not their difference.
VEMO_INLINE float areaWeightFromFactors(float leadX, float tailX, float leadY, float tailY) {
  return tailX * ((leadX * leadY) * tailY);
}

VEMO_INLINE float areaCellWeight(const AreaSpan& sx, const AreaSpan& sy, int i, int j) {
  return areaWeightFromFactors(areaLeadFactor(sx, i), areaTailFactor(sx, i), areaLeadFactor(sy, j),
                               areaTailFactor(sy, j));
}

// Index one past the last source cell a footprint visits along an axis of
// `size` cells: the first cell always, then further cells while inside both
// the footprint and the source.
VEMO_INLINE int areaSpanEnd(const AreaSpan& s, int size) {
  const int end = s.last < size - 1 ? s.last + 1 : size;
  return end > s.first ? end : s.first + 1;
}

// Area of one output pixel in source cells: (height / newheight) * (width / newwidth).
VEMO_INLINE float areaNorm(int height, int width, int newheight, int newwidth) {
  return ((float)height / (float)newheight) * ((float)width / (float)newwidth);
}

// Area average over the footprint sx x sy: weighted sum (fused multiply-adds,
// rows then columns; further rows and columns while inside both the
// footprint and the source) divided by the pixel area.
VEMO_INLINE float areaAverage(const float* arr, int height, int width, int pitch, const AreaSpan& sx,
                              const AreaSpan& sy, float norm) {
  float sum = 0.0f;
  int j = sy.first;
  do {
    const float* row = arr + j * pitch;
    int i = sx.first;
    do {
      sum = fmaf(row[i], areaCellWeight(sx, sy, i, j), sum);
      ++i;
    } while (i <= sx.last && i < width);
    ++j;
  } while (j <= sy.last && j < height);
  return sum / norm;
}

// Confidence-weighted average over the same footprint: cells with conf <= 0
// are skipped; the result is sum(arr * c * w) / sum(c * w). A footprint
// without any positive confidence gives 0/0 = NaN on purpose: consumers test
// weights with "> 0", which NaN fails, so the pixel counts as unmatched.
VEMO_INLINE float areaWeightedAverage(const float* arr, const float* conf, int height, int width, int pitch,
                                      const AreaSpan& sx, const AreaSpan& sy) {
  float num = 0.0f, den = 0.0f;
  int j = sy.first;
  do {
    const float* row = arr + j * pitch;
    const float* crow = conf + j * pitch;
    int i = sx.first;
    do {
      const float c = crow[i];
      if (c > 0.0f) {
        const float cw = c * areaCellWeight(sx, sy, i, j);
        num = fmaf(row[i], cw, num);
        den = den + cw;
      }
      ++i;
    } while (i <= sx.last && i < width);
    ++j;
  } while (j <= sy.last && j < height);
  return num / den;
}

// Output pixel (x, y) of the plain reduction from height x width to
// newheight x newwidth.
VEMO_INLINE float downsampleAt(const float* arr, int height, int width, int pitch,
                               int newheight, int newwidth, int x, int y) {
  return areaAverage(arr, height, width, pitch, areaSpan(width, newwidth, x), areaSpan(height, newheight, y),
                     areaNorm(height, width, newheight, newwidth));
}

// Output pixel (x, y) of the confidence-weighted reduction.
VEMO_INLINE float downsampleWeightedAt(const float* arr, int height, int width, int pitch,
                                       int newheight, int newwidth, const float* conf, int x, int y) {
  return areaWeightedAverage(arr, conf, height, width, pitch, areaSpan(width, newwidth, x),
                             areaSpan(height, newheight, y));
}

// Bilinear enlargement: output pixel (x, y) samples the source (height x
// width) at continuous position (x / scaleFactor, y / scaleFactor), integer
// positions being pixel centres, with edge clamping.
// One axis of it: where output index x samples a source axis of n pixels.
VEMO_INLINE TexAxis interpolateAxis(float scaleFactor, int x, int n) {
  return texAxis(texCentre((float)x / scaleFactor), n);
}

VEMO_INLINE float interpolateAt(const float* src, int height, int width, int pitch,
                                float scaleFactor, int x, int y) {
  return texBlend(src, pitch, interpolateAxis(scaleFactor, x, width), interpolateAxis(scaleFactor, y, height));
}

}  // namespace vemo
