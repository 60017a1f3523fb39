#include "backends/cpu/motion_tensor.h"

#include "backends/cpu/row_parallel.h"
#include <memory>

#include "backends/cpu/convolve.h"
#include "backends/cpu/elementwise.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/motion_tensor.h"

namespace flowcore::cpu {

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


}  // namespace flowcore::cpu
