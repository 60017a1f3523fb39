// Per-pixel accumulation of the two motion tensors of the data terms.
//
// ST (brightness constancy) and ST2 (gradient constancy) each hold six planes,
// the upper triangle of a symmetric 3x3 tensor over (du, dv, 1), planes
// stacked at pitch * height floats:
//   0: J11  1: J22  2: J33  3: J12  4: J13  5: J23
// Both functions add into the stored values (fused multiply-adds), so the
// tensors sum over the channels of a frame.
#pragma once

#include <cmath>

#include "common/hd.h"

namespace vemo {

// Offset of the squared magnitude before the root in every normalisation.
constexpr double kTensorEpsilon = 1e-6;

// 1 / sqrt(s + 1e-6) with the sum, root and reciprocal in double precision,
// rounded to single.
VEMO_INLINE float robustReciprocal(float s) { return (float)(1.0 / ::sqrt((double)s + kTensorEpsilon)); }

// Brightness term at (x, y): w = Conf / sqrt(Ix^2 + Iy^2 + 1e-6), then the six
// products w * Ia * Ib.
VEMO_INLINE void makeSTAt(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
                          int height, int width, int pitch, int x, int y) {
  const int idx = y * pitch + x;
  const int plane = pitch * height;
  const float ix = Ix[idx], iy = Iy[idx], iz = Iz[idx];
  const float s = fmaf(ix, ix, iy * iy);
  const float w = (float)((double)Conf[idx] / ::sqrt((double)s + kTensorEpsilon));
  const float t = w * ix;
  float* p = ST + idx;
  p[0] = fmaf(ix, t, p[0]);
  p[3 * plane] = fmaf(iy, t, p[3 * plane]);
  p[4 * plane] = fmaf(iz, t, p[4 * plane]);
  p[plane] = fmaf(iy, w * iy, p[plane]);
  p[2 * plane] = fmaf(iz, w * iz, p[2 * plane]);
  p[5 * plane] = fmaf(iz, w * iy, p[5 * plane]);
}

// Gradient term at (x, y): b normalises the gradient of Ix, a that of Iy;
// each bracket is formed in single precision and added as Conf * bracket.
//   J11 b Ixx^2 + a Ixy^2        J12 Ixy (b Ixx + a Iyy)
//   J22 b Ixy^2 + a Iyy^2        J13 b Ixx Ixz + a Ixy Iyz
//   J33 b Ixz^2 + a Iyz^2        J23 b Ixy Ixz + a Iyy Iyz
VEMO_INLINE void makeST2At(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy,
                           const float* Ixz, const float* Iyz, const float* Conf,
                           int height, int width, int pitch, int x, int y) {
  const int idx = y * pitch + x;
  const int plane = pitch * height;
  const float xx = Ixx[idx], xy = Ixy[idx], yy = Iyy[idx], xz = Ixz[idx], yz = Iyz[idx];
  const float conf = Conf[idx];
  const float b = robustReciprocal(fmaf(xx, xx, xy * xy));
  const float a = robustReciprocal(fmaf(xy, xy, yy * yy));
  float* p = ST2 + idx;
  p[0] = fmaf(conf, fmaf(a * xy, xy, (b * xx) * xx), p[0]);
  p[plane] = fmaf(conf, fmaf(a * yy, yy, (b * xy) * xy), p[plane]);
  p[2 * plane] = fmaf(conf, fmaf(a * yz, yz, (b * xz) * xz), p[2 * plane]);
  p[3 * plane] = fmaf(conf, xy * fmaf(a, yy, b * xx), p[3 * plane]);
  p[4 * plane] = fmaf(conf, fmaf(a * xy, yz, (b * xx) * xz), p[4 * plane]);
  p[5 * plane] = fmaf(conf, fmaf(a * yy, yz, (b * xy) * xz), p[5 * plane]);
}

}  // namespace vemo
