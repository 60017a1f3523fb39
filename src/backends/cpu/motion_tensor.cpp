#include "backends/cpu/motion_tensor.h"

#include <cstddef>
#include <vector>

#include "backends/cpu/convolve_rows.h"
#include "backends/cpu/pixel_loop.h"
#include "backends/cpu/row_parallel.h"
#include "pixel/convolve.h"
#include "pixel/elementwise.h"
#include "pixel/motion_tensor.h"

namespace vemo::cpu {

// Row loops over the six planes with unaliased row pointers, so that the
// per-pixel updates (double root and division included) vectorise.
namespace {

VEMO_CPU_CLONES void makeSTRows(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
                                int height, int width, int pitch, int y0, int y1) {
  const size_t plane = (size_t)pitch * height;
  for (int y = y0; y < y1; ++y) {
    const size_t r = (size_t)y * pitch;
    const float* __restrict ix = Ix + r;
    const float* __restrict iy = Iy + r;
    const float* __restrict iz = Iz + r;
    const float* __restrict cf = Conf + r;
    float* __restrict p0 = ST + r;
    float* __restrict p1 = p0 + plane;
    float* __restrict p2 = p1 + plane;
    float* __restrict p3 = p2 + plane;
    float* __restrict p4 = p3 + plane;
    float* __restrict p5 = p4 + plane;
#pragma omp simd
    for (int x = 0; x < width; ++x)
      addBrightnessTensor(ix[x], iy[x], iz[x], cf[x], p0[x], p1[x], p2[x], p3[x], p4[x], p5[x]);
  }
}

VEMO_CPU_CLONES void makeST2Rows(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                                 const float* Iyz, const float* Conf, int height, int width, int pitch, int y0, int y1) {
  const size_t plane = (size_t)pitch * height;
  for (int y = y0; y < y1; ++y) {
    const size_t r = (size_t)y * pitch;
    const float* __restrict xx = Ixx + r;
    const float* __restrict xy = Ixy + r;
    const float* __restrict yy = Iyy + r;
    const float* __restrict xz = Ixz + r;
    const float* __restrict yz = Iyz + r;
    const float* __restrict cf = Conf + r;
    float* __restrict p0 = ST2 + r;
    float* __restrict p1 = p0 + plane;
    float* __restrict p2 = p1 + plane;
    float* __restrict p3 = p2 + plane;
    float* __restrict p4 = p3 + plane;
    float* __restrict p5 = p4 + plane;
#pragma omp simd
    for (int x = 0; x < width; ++x)
      addGradientTensor(xx[x], xy[x], yy[x], xz[x], yz[x], cf[x], p0[x], p1[x], p2[x], p3[x], p4[x], p5[x]);
  }
}

// Output rows per piece of the fused pass: the piece's tensor rows (twelve
// planes) and its derivative rows stay in the second-level cache while the
// channels are added into them.
constexpr int kPieceRows = 8;

// The tensors of rows [y0, y1), a piece at a time. For each channel the
// first derivatives Ix, Iy, Iz are formed for the piece's rows and the rows
// within half a mask of them (held rows), then the five second derivatives
// row by row, then both tensors' terms are added. `scratch` holds
// 3 * (kPieceRows + length - 1) + 5 rows of `pitch` floats.
VEMO_CPU_CLONES void motionTensorRows(const float* frame1, const float* warped, float* ST, float* ST2,
                                      const float* conf, int height, int width, int pitch, int nChan,
                                      const float* mask, int length, float* scratch, int y0, int y1) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  const std::size_t stride = pitch;
  const int h = length / 2;
  const int held = kPieceRows + length - 1;
  float* const ix = scratch;
  float* const iy = ix + held * stride;
  float* const iz = iy + held * stride;
  float* const xx = iz + held * stride;
  float* const xy = xx + stride;
  float* const yy = xy + stride;
  float* const xz = yy + stride;
  float* const yz = xz + stride;
  for (int a = y0; a < y1; a += kPieceRows) {
    const int b = a + kPieceRows < y1 ? a + kPieceRows : y1;
    const int first = a - h > 0 ? a - h : 0;
    const int last = b + (length - 1 - h) < height ? b + (length - 1 - h) : height;
    for (int c = 0; c < nChan; ++c) {
      const float* I1 = frame1 + c * plane;
      const float* I2 = warped + c * plane;
      for (int r = first; r < last; ++r) {
        const std::size_t o = static_cast<std::size_t>(r) * pitch, k = (r - first) * stride;
        passRowX(ix + k, I1 + o, width, mask, length, true);
        passRowY(iy + k, I1, 0, stride, height, width, mask, length, true, r);
        const float* __restrict i1 = I1 + o;
        const float* __restrict i2 = I2 + o;
        float* __restrict dz = iz + k;
        for (int x = 0; x < width; ++x) diffAt(dz, i2, i1, 0, x, 0);
      }
      for (int y = a; y < b; ++y) {
        const std::size_t k = (y - first) * stride;
        passRowX(xx, ix + k, width, mask, length, true);
        passRowY(xy, ix, first, stride, height, width, mask, length, true, y);
        passRowY(yy, iy, first, stride, height, width, mask, length, true, y);
        passRowX(xz, iz + k, width, mask, length, true);
        passRowY(yz, iz, first, stride, height, width, mask, length, true, y);
        const std::size_t r = static_cast<std::size_t>(y) * pitch;
        makeSTRows(ST + r, ix + k, iy + k, iz + k, conf + r, height, width, pitch, 0, 1);
        makeST2Rows(ST2 + r, xx, xy, yy, xz, yz, conf + r, height, width, pitch, 0, 1);
      }
    }
  }
}

}  // namespace

void makeST(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf, int height, int width,
            int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { makeSTRows(ST, Ix, Iy, Iz, Conf, height, width, pitch, y0, y1); });
}

void makeST2(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz, const float* Iyz,
             const float* Conf, int height, int width, int pitch) {
  parallelRows(height, width, [&](int y0, int y1) {
    makeST2Rows(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, Conf, height, width, pitch, y0, y1);
  });
}


void motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf, int height,
                   int width, int pitch, int nChan, const float* mask, int length) {
  checkPlane("motionTensors", height, width, pitch);
  if (length < 1 || length >= kSmallMaskLimit) refuseArguments("motionTensors: mask length outside 1..7");
  const std::size_t floats = (3 * static_cast<std::size_t>(kPieceRows + length - 1) + 5) * pitch;
  parallelRows(height, width, [&](int y0, int y1) {
    thread_local std::vector<float> scratch;
    if (scratch.size() < floats) scratch.resize(floats);
    motionTensorRows(frame1, warped, ST, ST2, conf, height, width, pitch, nChan, mask, length, scratch.data(), y0, y1);
  });
}

}  // namespace vemo::cpu
