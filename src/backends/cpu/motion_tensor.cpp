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
VEMO_CPU_CLONES void makeST(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
                            int height, int width, int pitch) {
  const size_t plane = (size_t)pitch * height;
#pragma omp parallel for schedule(static) if (static_cast<long>(height) * width >= kParallelMinPixels)
  for (int y = 0; y < height; ++y) {
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

VEMO_CPU_CLONES void makeST2(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                             const float* Iyz, const float* Conf, int height, int width, int pitch) {
  const size_t plane = (size_t)pitch * height;
#pragma omp parallel for schedule(static) if (static_cast<long>(height) * width >= kParallelMinPixels)
  for (int y = 0; y < height; ++y) {
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


}  // namespace flowcore::cpu
