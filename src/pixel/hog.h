// Per-pixel rules of the orientation-histogram (HOG) field.
//
// A HOG field has nOri planes of pitch * height floats; plane b holds, for
// every pixel, the gradient energy whose direction atan2(gy, gx) falls into
// the signed bin [-pi + b 2pi/nOri, -pi + (b+1) 2pi/nOri). It is built in
// three steps: hard binning of each channel's central-difference gradient
// (hogAccumulateAt), circular smoothing across the bins (hogSmoothBinsAt),
// then a 7 x 7 box mean of every plane (done by the short-mask convolutions).
#pragma once

#include <cmath>
#include <cstddef>

#include "common/hd.h"

namespace vemo {

// Number of orientation bins the matching uses.
constexpr int kHogBins = 15;

// Central difference (I(x+1) - I(x-1)) / 2 as a correlation mask.
constexpr float kHogGradientMask[3] = {-0.5f, 0.0f, 0.5f};

// Normalised three-tap Gaussian of standard deviation 0.8 used to smooth the
// histogram across neighbouring orientations (side, centre, side tap).
constexpr float kHogBinSide = 0.23899427f;
constexpr float kHogBinCentre = 0.52201146f;
constexpr float kHogBinSmoothing[3] = {kHogBinSide, kHogBinCentre, kHogBinSide};

// Box mean over 7 pixels, applied along x and then y: 7 taps of 1/7.
constexpr int kHogPoolLength = 7;
constexpr float kHogPoolTap = 0.14285715f;

// Orientation bin of the gradient (gx, gy), or -1 when both components are
// exactly zero or either is NaN (such a pixel adds nothing).
//
// The angle is the single-precision atan2, taken as the double-precision
// angle rounded to float so that every executor gets the same value for the
// same gradient. theta + pi is formed in double and rounded to float, scaled
// by nOri in float, and divided by 2 pi in double before truncation. The
// angle pi itself lands on nOri and wraps to bin 0.
VEMO_INLINE int hogOrientationBin(float gx, float gy, int nOri) {
  if (gx == 0.0f && gy == 0.0f) return -1;
  const double kPi = 3.14159265358979323846;
  const float theta = (float)atan2((double)gy, (double)gx);
  const float shifted = (float)((double)theta + kPi);
  const float scaled = (float)nOri * shifted;
  if (!(scaled == scaled)) return -1;  // a NaN gradient has no direction
  int bin = (int)((double)scaled / (2.0 * kPi));
  if (bin >= nOri) bin = 0;
  if (bin < 0) bin = 0;
  return bin;
}

// Adds the gradient magnitude sqrt(gx^2 + gy^2) of pixel i (= y * pitch + x)
// to its orientation bin of `hog` (planes planeStride = pitch * height floats
// apart). Each call touches only pixel i, so channels accumulate by
// successive passes.
VEMO_INLINE void hogAccumulateAt(const float* dx, const float* dy, float* hog, int nOri,
                                 std::size_t planeStride, std::size_t i) {
  const float gx = dx[i];
  const float gy = dy[i];
  const int bin = hogOrientationBin(gx, gy, nOri);
  if (bin < 0) return;
  hog[(std::size_t)bin * planeStride + i] += sqrtf(gx * gx + gy * gy);
}

// Circular smoothing across the orientation axis at pixel i:
//   out[b] = f0 in[b-1] + f1 in[b] + f2 in[b+1], bins wrapping around,
// formed as the centre product first, then the left and the right tap added
// by fused multiply-add. `in` and `out` are distinct fields. hogSmoothBinAt
// forms bin b, hogSmoothBinsAt every bin.
VEMO_INLINE void hogSmoothBinAt(const float* in, float* out, int nOri, std::size_t planeStride, std::size_t i,
                                int b, float f0, float f1, float f2) {
  const int left = b == 0 ? nOri - 1 : b - 1;
  const int right = b == nOri - 1 ? 0 : b + 1;
  const float centre = f1 * in[(std::size_t)b * planeStride + i];
  const float withLeft = fmaf(f0, in[(std::size_t)left * planeStride + i], centre);
  out[(std::size_t)b * planeStride + i] = fmaf(f2, in[(std::size_t)right * planeStride + i], withLeft);
}

VEMO_INLINE void hogSmoothBinsAt(const float* in, float* out, int nOri, std::size_t planeStride,
                                 std::size_t i, float f0, float f1, float f2) {
  for (int b = 0; b < nOri; ++b) hogSmoothBinAt(in, out, nOri, planeStride, i, b, f0, f1, f2);
}

// Total energy of pixel i: the sum of its nOri bins in increasing order.
VEMO_INLINE float hogEnergyAt(const float* hog, int nOri, std::size_t planeStride, std::size_t i) {
  float sum = 0.0f;
  for (int b = 0; b < nOri; ++b) sum += hog[(std::size_t)b * planeStride + i];
  return sum;
}

}  // namespace vemo
