#include "variational/motion_tensors.h"

#include <cstddef>

namespace flowcore {

const float kDerivativeMask5[5] = {1.0f / 12.0f, -8.0f / 12.0f, 0.0f, 8.0f / 12.0f, -1.0f / 12.0f};

void MakeST(Backend& backend, const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
            float* derivatives, int height, int width, int pitch, int nChan) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  float* Ix = derivatives;
  float* Iy = Ix + plane;
  float* Iz = Iy + plane;
  float* Ixx = Iz + plane;
  float* Ixy = Ixx + plane;
  float* Iyy = Ixy + plane;
  float* Ixz = Iyy + plane;
  float* Iyz = Ixz + plane;
  const float* mask = kDerivativeMask5;
  for (int c = 0; c < nChan; ++c) {
    const float* I1 = frame1 + c * plane;
    const float* I2 = warped + c * plane;
    backend.convolveX(Ix, I1, height, width, pitch, mask, 5);
    backend.convolveY(Iy, I1, height, width, pitch, mask, 5);
    backend.diff(Iz, I2, I1, height, width, pitch);
    backend.convolveX(Ixx, Ix, height, width, pitch, mask, 5);
    backend.convolveY(Ixy, Ix, height, width, pitch, mask, 5);
    backend.convolveY(Iyy, Iy, height, width, pitch, mask, 5);
    backend.convolveX(Ixz, Iz, height, width, pitch, mask, 5);
    backend.convolveY(Iyz, Iz, height, width, pitch, mask, 5);
    backend.brightnessTensor(ST, Ix, Iy, Iz, conf, height, width, pitch);
    backend.gradientTensor(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch);
  }
}

}  // namespace flowcore
