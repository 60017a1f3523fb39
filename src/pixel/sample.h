// Texture-style reads of a pitched plane: clamp addressing, point or bilinear
// filtering, unnormalised coordinates in which texel (c, r) covers
// [c, c + 1) x [r, r + 1) and its centre lies at (c + 0.5, r + 0.5).
//
// The device reads these through the texture unit; here the same reads are
// written out with plain loads so that the CPU executor and a kernel share
// them. Bilinear weights are exact: the texture unit quantises the fractions
// to 1/256, so device results differ from these by up to that much.
#pragma once

#include <cmath>

#include "common/hd.h"

namespace flowcore {

// Clamp addressing: the index of the edge texel for anything outside [0, n).
VEMO_INLINE int clampIndex(int i, int n) { return i < 0 ? 0 : (i >= n ? n - 1 : i); }

// Integer part of a texture coordinate, saturated so that coordinates far
// outside the image (or not finite) still land on an edge texel after clamping
// instead of overflowing the int conversion.
VEMO_INLINE int texelFloor(float t, int n) {
  if (!(t >= 0.0f)) return t < 0.0f ? -1 : 0;  // negative, or NaN: edge texel
  if (t >= (float)n) return n;
  return (int)floorf(t);
}

// Point filtering at texture coordinate (tx, ty) of a plane of `rows` rows and
// `cols` columns: the texel containing the coordinate, clamped to the plane.
VEMO_INLINE float texFetchPoint(const float* src, int rows, int cols, int pitch, float tx, float ty) {
  const int c = clampIndex(texelFloor(tx, cols), cols);
  const int r = clampIndex(texelFloor(ty, rows), rows);
  return src[r * pitch + c];
}

// Linear filtering at texture coordinate (tx, ty): the four texels around
// (tx - 0.5, ty - 0.5), each index clamped to the plane, blended as
// (1-a)(1-b) T00 + a(1-b) T10 + (1-a)b T01 + ab T11 in single precision.
VEMO_INLINE float texFetchLinear(const float* src, int rows, int cols, int pitch, float tx, float ty) {
  const float xb = tx - 0.5f;
  const float yb = ty - 0.5f;
  const int i = texelFloor(xb, cols);
  const int j = texelFloor(yb, rows);
  // Fractions only for in-range coordinates; outside, both neighbours clamp
  // to the same edge texel and the fraction does not matter.
  const float a = (xb >= 0.0f && xb < (float)cols) ? xb - (float)i : 0.0f;
  const float b = (yb >= 0.0f && yb < (float)rows) ? yb - (float)j : 0.0f;
  const int c0 = clampIndex(i, cols), c1 = clampIndex(i + 1, cols);
  const int r0 = clampIndex(j, rows), r1 = clampIndex(j + 1, rows);
  const float* row0 = src + r0 * pitch;
  const float* row1 = src + r1 * pitch;
  const float wa = 1.0f - a, wb = 1.0f - b;
  float v = (wa * wb) * row0[c0];
  v = v + (a * wb) * row0[c1];
  v = v + (wa * b) * row1[c0];
  v = v + (a * b) * row1[c1];
  return v;
}

// Texture coordinate of pixel position p: p + 0.5, the addition done in double
// and rounded to single, as the kernels that sample at pixel centres do.
VEMO_INLINE float texCentre(float p) { return (float)((double)p + 0.5); }

}  // namespace flowcore
