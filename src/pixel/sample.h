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

namespace vemo {

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

// One axis of linear filtering at texture coordinate t over n texels: the two
// texels around t - 0.5, each clamped to the plane, and the fraction of the
// second (only for in-range coordinates; outside, both neighbours clamp to
// the same edge texel and the fraction does not matter).
struct TexAxis {
  int i0, i1;
  float frac;
};

VEMO_INLINE TexAxis texAxis(float t, int n) {
  const float base = t - 0.5f;
  const int i = texelFloor(base, n);
  const float frac = (base >= 0.0f && base < (float)n) ? base - (float)i : 0.0f;
  return TexAxis{clampIndex(i, n), clampIndex(i + 1, n), frac};
}

// The bilinear blend (1-a)(1-b) T00 + a(1-b) T10 + (1-a)b T01 + ab T11 in
// single precision, x along columns and y along rows.
VEMO_INLINE float texBlend(const float* src, int pitch, const TexAxis& x, const TexAxis& y) {
  const float a = x.frac, b = y.frac;
  const float* row0 = src + y.i0 * pitch;
  const float* row1 = src + y.i1 * pitch;
  const float wa = 1.0f - a, wb = 1.0f - b;
  float v = (wa * wb) * row0[x.i0];
  v = v + (a * wb) * row0[x.i1];
  v = v + (wa * b) * row1[x.i0];
  v = v + (a * b) * row1[x.i1];
  return v;
}

// Linear filtering at texture coordinate (tx, ty): the four texels around
// (tx - 0.5, ty - 0.5), blended.
VEMO_INLINE float texFetchLinear(const float* src, int rows, int cols, int pitch, float tx, float ty) {
  return texBlend(src, pitch, texAxis(tx, cols), texAxis(ty, rows));
}

// Texture coordinate of pixel position p: p + 0.5, the addition done in double
// and rounded to single, as the kernels that sample at pixel centres do.
VEMO_INLINE float texCentre(float p) { return (float)((double)p + 0.5); }

}  // namespace vemo
