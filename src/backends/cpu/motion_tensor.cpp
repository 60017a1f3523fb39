#include "backends/cpu/motion_tensor.h"

#include "backends/cpu/row_parallel.h"
#include <memory>

#include "backends/cpu/convolve.h"
#include "backends/cpu/elementwise.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/motion_tensor.h"

namespace flowcore::cpu {

const float kDerivativeMask5[5] = {1.0f / 12.0f, -8.0f / 12.0f, 0.0f, 8.0f / 12.0f, -1.0f / 12.0f};

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

void MakeST(const float* frame1, const float* warped, float* ST, float* ST2, const float* Conf,
            int height, int width, int pitch, int channels) {
  checkPlane("MakeST", height, width, pitch);
  const size_t plane = (size_t)pitch * height;
  // Eight derivative planes: Ix, Iy, Iz, Ixx, Ixy, Iyy, Ixz, Iyz. Left
  // uninitialised: every stage writes the height x width data before it is
  // read, and nothing reads the padding.
  std::unique_ptr<float[]> scratch(new float[8 * plane]);
  float* Ix = scratch.get();
  float* Iy = Ix + plane;
  float* Iz = Iy + plane;
  float* Ixx = Iz + plane;
  float* Ixy = Ixx + plane;
  float* Iyy = Ixy + plane;
  float* Ixz = Iyy + plane;
  float* Iyz = Ixz + plane;
  const float* mask = kDerivativeMask5;
  for (int c = 0; c < channels; ++c) {
    const float* I1 = frame1 + c * plane;
    const float* I2 = warped + c * plane;
    gConvolveX(Ix, I1, height, width, pitch, mask, 5);
    gConvolveY(Iy, I1, height, width, pitch, mask, 5);
    Diff(Iz, I2, I1, height, width, pitch);
    gConvolveX(Ixx, Ix, height, width, pitch, mask, 5);
    gConvolveY(Ixy, Ix, height, width, pitch, mask, 5);
    gConvolveY(Iyy, Iy, height, width, pitch, mask, 5);
    gConvolveX(Ixz, Iz, height, width, pitch, mask, 5);
    gConvolveY(Iyz, Iz, height, width, pitch, mask, 5);
    makeST(ST, Ix, Iy, Iz, Conf, height, width, pitch);
    makeST2(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, Conf, height, width, pitch);
  }
}

}  // namespace flowcore::cpu
