// Per-pixel pyramid resampling: area-weighted reduction (plain and weighted
// by a confidence plane) and bilinear enlargement.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/sample.h"

namespace vemo {

// Footprint of output pixel (x, y) of a reduction from height x width to
// newheight x newwidth: the source rectangle [x0, x1) x [y0, y1) with the
// first and last cells it touches in each direction.
struct AreaFootprint {
  float x0, x1, y0, y1;
  int is, ie, js, je;
};

VEMO_INLINE AreaFootprint areaFootprint(int height, int width, int newheight, int newwidth, int x, int y) {
  const float fy = (float)height / (float)newheight;
  const float fx = (float)width / (float)newwidth;
  AreaFootprint f;
  f.y0 = fy * (float)y;
  f.y1 = fy * (float)(y + 1);
  f.x0 = fx * (float)x;
  f.x1 = fx * (float)(x + 1);
  f.js = (int)floorf(f.y0);
  f.je = (int)floorf(f.y1);
  f.is = (int)floorf(f.x0);
  f.ie = (int)floorf(f.x1);
  // The first cell is always visited; keep it inside the source even if a
  // rounding quirk put the footprint's start on the far edge.
  if (f.js > height - 1) f.js = height - 1;
  if (f.is > width - 1) f.is = width - 1;
  return f;
}

// Weight of source cell (i, j) in footprint f: the covered fraction of the
// first cell and of the last cell, applied independently (a footprint that
// starts and ends in one cell gets the product of both fractions).
VEMO_INLINE float areaCellWeight(const AreaFootprint& f, int i, int j) {
  const float wy = (f.y0 - (float)j > 0.0f) ? (float)j + (1.0f - f.y0) : 1.0f;
  float w = (f.x0 - (float)i > 0.0f) ? ((float)i + (1.0f - f.x0)) * wy : wy;
  if (j == f.je) w = w * (f.y1 - (float)f.je);
  if (i == f.ie) w = (f.x1 - (float)f.ie) * w;
  return w;
}

// Area average of `arr` over the footprint of output pixel (x, y):
// weighted sum (fused multiply-adds, rows then columns) divided by fy * fx.
VEMO_INLINE float downsampleAt(const float* arr, int height, int width, int pitch,
                               int newheight, int newwidth, int x, int y) {
  const AreaFootprint f = areaFootprint(height, width, newheight, newwidth, x, y);
  float sum = 0.0f;
  int j = f.js;
  do {
    const float* row = arr + j * pitch;
    int i = f.is;
    do {
      sum = fmaf(row[i], areaCellWeight(f, i, j), sum);
      ++i;
    } while (i <= f.ie && i < width);
    ++j;
  } while (j <= f.je && j < height);
  const float fy = (float)height / (float)newheight;
  const float fx = (float)width / (float)newwidth;
  return sum / (fy * fx);
}

// Confidence-weighted average over the same footprint: cells with conf <= 0
// are skipped; the result is sum(arr * c * w) / sum(c * w). A footprint
// without any positive confidence gives 0/0 = NaN on purpose: consumers test
// weights with "> 0", which NaN fails, so the pixel counts as unmatched.
VEMO_INLINE float downsampleWeightedAt(const float* arr, int height, int width, int pitch,
                                       int newheight, int newwidth, const float* conf, int x, int y) {
  const AreaFootprint f = areaFootprint(height, width, newheight, newwidth, x, y);
  float num = 0.0f, den = 0.0f;
  int j = f.js;
  do {
    const float* row = arr + j * pitch;
    const float* crow = conf + j * pitch;
    int i = f.is;
    do {
      const float c = crow[i];
      if (c > 0.0f) {
        const float cw = c * areaCellWeight(f, i, j);
        num = fmaf(row[i], cw, num);
        den = den + cw;
      }
      ++i;
    } while (i <= f.ie && i < width);
    ++j;
  } while (j <= f.je && j < height);
  return num / den;
}

// Bilinear enlargement: output pixel (x, y) samples the source (height x
// width) at continuous position (x / scaleFactor, y / scaleFactor), integer
// positions being pixel centres, with edge clamping.
VEMO_INLINE float interpolateAt(const float* src, int height, int width, int pitch,
                                float scaleFactor, int x, int y) {
  const float X = (float)x / scaleFactor;
  const float Y = (float)y / scaleFactor;
  return texFetchLinear(src, height, width, pitch, texCentre(X), texCentre(Y));
}

}  // namespace vemo
