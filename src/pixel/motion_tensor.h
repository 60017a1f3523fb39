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

// Brightness term of one pixel: w = conf / sqrt(ix^2 + iy^2 + 1e-6), then
// the six products w * Ia * Ib added into p0..p5.
VEMO_INLINE void addBrightnessTensor(float ix, float iy, float iz, float conf, float& p0, float& p1, float& p2,
                                     float& p3, float& p4, float& p5) {
  const float s = fmaf(ix, ix, iy * iy);
  const float w = (float)((double)conf / ::sqrt((double)s + kTensorEpsilon));
  const float t = w * ix;
  p0 = fmaf(ix, t, p0);
  p3 = fmaf(iy, t, p3);
  p4 = fmaf(iz, t, p4);
  p1 = fmaf(iy, w * iy, p1);
  p2 = fmaf(iz, w * iz, p2);
  p5 = fmaf(iz, w * iy, p5);
}

// The brightness term at pixel (x, y) of the planes.
VEMO_INLINE void makeSTAt(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
                          int height, int width, int pitch, int x, int y) {
  const int idx = y * pitch + x;
  const int plane = pitch * height;
  float* p = ST + idx;
  addBrightnessTensor(Ix[idx], Iy[idx], Iz[idx], Conf[idx], p[0], p[plane], p[2 * plane], p[3 * plane],
                      p[4 * plane], p[5 * plane]);
}

// Gradient term of one pixel: b normalises the gradient of Ix, a that of Iy;
// each bracket is formed in single precision and added as conf * bracket.
//   J11 b Ixx^2 + a Ixy^2        J12 Ixy (b Ixx + a Iyy)
//   J22 b Ixy^2 + a Iyy^2        J13 b Ixx Ixz + a Ixy Iyz
//   J33 b Ixz^2 + a Iyz^2        J23 b Ixy Ixz + a Iyy Iyz
VEMO_INLINE void addGradientTensor(float xx, float xy, float yy, float xz, float yz, float conf, float& p0,
                                   float& p1, float& p2, float& p3, float& p4, float& p5) {
  const float b = robustReciprocal(fmaf(xx, xx, xy * xy));
  const float a = robustReciprocal(fmaf(xy, xy, yy * yy));
  p0 = fmaf(conf, fmaf(a * xy, xy, (b * xx) * xx), p0);
  p1 = fmaf(conf, fmaf(a * yy, yy, (b * xy) * xy), p1);
  p2 = fmaf(conf, fmaf(a * yz, yz, (b * xz) * xz), p2);
  p3 = fmaf(conf, xy * fmaf(a, yy, b * xx), p3);
  p4 = fmaf(conf, fmaf(a * xy, yz, (b * xx) * xz), p4);
  p5 = fmaf(conf, fmaf(a * yy, yz, (b * xy) * xz), p5);
}

// The gradient term at pixel (x, y) of the planes.
VEMO_INLINE void makeST2At(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy,
                           const float* Ixz, const float* Iyz, const float* Conf,
                           int height, int width, int pitch, int x, int y) {
  const int idx = y * pitch + x;
  const int plane = pitch * height;
  float* p = ST2 + idx;
  addGradientTensor(Ixx[idx], Ixy[idx], Iyy[idx], Ixz[idx], Iyz[idx], Conf[idx], p[0], p[plane], p[2 * plane],
                    p[3 * plane], p[4 * plane], p[5 * plane]);
}

}  // namespace vemo
