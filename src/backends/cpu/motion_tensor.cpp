#include "backends/cpu/motion_tensor.h"

#include <memory>

#include "backends/cpu/convolve.h"
#include "backends/cpu/elementwise.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/motion_tensor.h"

namespace vemo::cpu {

const float kDerivativeMask5[5] = {1.0f / 12.0f, -8.0f / 12.0f, 0.0f, 8.0f / 12.0f, -1.0f / 12.0f};

VEMO_CPU_CLONES void makeST(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
            int height, int width, int pitch) {
  VEMO_FOR_EACH_PIXEL(height, width, x, y) { makeSTAt(ST, Ix, Iy, Iz, Conf, height, width, pitch, x, y); }
}

VEMO_CPU_CLONES void makeST2(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
             const float* Iyz, const float* Conf, int height, int width, int pitch) {
  VEMO_FOR_EACH_PIXEL(height, width, x, y) {
    makeST2At(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, Conf, height, width, pitch, x, y);
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

}  // namespace vemo::cpu
