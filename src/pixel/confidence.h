// Per-pixel and per-point rules that steer and judge the descriptor matching:
// the cornerness of frame 1 (smaller structure-tensor eigenvalue weighted by
// the gradient magnitude), the row sums behind its mean, and the
// forward-backward consistency check that writes the match planes.
#pragma once

#include <cmath>
#include <cstddef>

#include "common/hd.h"

namespace vemo {

// Structure-tensor entries of pixel i summed over the channels in order
// (fused multiply-adds from 0), and the gradient magnitude of the unsmoothed
// sums. dx and dy hold nChan planes planeStride floats apart.
VEMO_INLINE void structureTensorAt(const float* dx, const float* dy, float* dxx, float* dxy, float* dyy,
                                   float* mag, int nChan, std::size_t planeStride, std::size_t i) {
  float xx = 0.0f, xy = 0.0f, yy = 0.0f;
  for (int c = 0; c < nChan; ++c) {
    const float gx = dx[(std::size_t)c * planeStride + i];
    const float gy = dy[(std::size_t)c * planeStride + i];
    xx = fmaf(gx, gx, xx);
    xy = fmaf(gx, gy, xy);
    yy = fmaf(gy, gy, yy);
  }
  dxx[i] = xx;
  dxy[i] = xy;
  dyy[i] = yy;
  mag[i] = sqrtf(xx + yy);
}

// mag * (smaller eigenvalue of the smoothed tensor [xx xy; xy yy]):
// t = (xx + yy) / 2 (the halving in double), det = xx yy - xy^2, result
// mag (t - sqrt(t^2 - det)). Not clamped: rounding can make t^2 - det
// slightly negative, and the NaN that follows fails every later threshold.
VEMO_INLINE float cornernessFromTensor(float xx, float xy, float yy, float mag) {
  const float t = (float)((double)(xx + yy) * 0.5);
  const float det = xx * yy - xy * xy;
  return mag * (t - sqrtf(t * t - det));
}

// Threads per row of the image sum; thread t adds columns t, t + 256, ...
constexpr int kSumThreads = 256;

// Partial sum of worker t over one row, in increasing column order.
VEMO_INLINE float rowPartialSum(const float* row, int width, int t) {
  float s = 0.0f;
  for (int x = t; x < width; x += kSumThreads) s += row[x];
  return s;
}

// Folds 256 partial sums into partial[0] by halving steps 128, 64, ..., 1:
// partial[t] += partial[t + step] for t < step. Destroys `partial`.
VEMO_INLINE float treeSum256(float* partial) {
  for (int step = kSumThreads / 2; step >= 1; step /= 2)
    for (int t = 0; t < step; ++t) partial[t] += partial[t + step];
  return partial[0];
}

// A forward match weighted by the margin of its best distance d1 over the
// runner-up d2: (d2 - d1) / (d1 + 1e-6), the difference in single and the
// division in double. Without a runner-up (d2 > 1e8) the weight is 1, or 0
// when there was no candidate at all.
VEMO_INLINE float matchWeight(float d1, float d2) {
  if (d2 > 1e8f) return d1 > 1e8f ? 0.0f : 1.0f;
  return (float)((double)(d2 - d1) / ((double)d1 + 1e-6));
}

// Whether grid point (x, y) of frames reduced by `scale` writes inside
// planes of height x width (see consistencyCheckAt).
VEMO_INLINE bool consistencyPointInside(int x, int y, int scale, int height, int width) {
  const int centre = (scale - 1) / 2;
  return x >= 0 && y >= 0 && (long long)x * scale + centre < width && (long long)y * scale + centre < height;
}

// Consistency check of point i: keeps the forward match of grid point
// (m_x[i], m_y[i]) when the backward search from it lands within one pixel
// of the grid point in both coordinates, writing the integer displacement and
// its weight at the grid point. Otherwise nothing is written.
//
// Matches found on frames reduced by an integer `scale` are written into
// planes of the full frame: at the full-frame pixel (scale * x + (scale - 1)
// / 2, likewise y), the one nearest the centre of the reduced pixel's
// footprint, with the displacement multiplied by scale. Scale 1 is the grid
// of the frames themselves.
VEMO_INLINE void consistencyCheckAt(const int* m_x, const int* m_y, const int* forward_x, const int* forward_y,
                                    const int* backward_x, const int* backward_y, const float* forward_dist,
                                    const float* forward_nextdist, float* Confidence, float* u, float* v,
                                    int pitch, int i, int scale = 1) {
  const int x0 = m_x[i];
  const int y0 = m_y[i];
  const int ex = x0 - backward_x[i];
  const int ey = y0 - backward_y[i];
  if (ex > 1 || ex < -1 || ey > 1 || ey < -1) return;
  const int centre = (scale - 1) / 2;
  const std::size_t k = (std::size_t)(y0 * scale + centre) * pitch + (x0 * scale + centre);
  Confidence[k] = matchWeight(forward_dist[i], forward_nextdist[i]);
  u[k] = (float)((forward_x[i] - x0) * scale);
  v[k] = (float)((forward_y[i] - y0) * scale);
}

}  // namespace vemo
