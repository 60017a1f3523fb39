// The motion tensors of one pyramid level as operations of an executor (a
// Backend, or a kernel's executor with the same operations): per channel,
// the derivatives of frame 1 and of the difference to the warped frame 2,
// then both tensors accumulate that channel's terms.
#pragma once

#include <cstddef>

#include "common/hd.h"

namespace vemo {

// Fourth-order central difference (I(x-2) - 8 I(x-1) + 8 I(x+1) - I(x+2)) / 12.
inline constexpr float kDerivativeMask5[5] = {1.0f / 12.0f, -8.0f / 12.0f, 0.0f, 8.0f / 12.0f, -1.0f / 12.0f};

// The operations of MakeST, issued on `steps` (a Backend, or a kernel's
// executor with the same operations); `mask` holds the five taps of
// kDerivativeMask5 in the executor's memory.
VEMO_EXECUTOR_TEMPLATE
template <class Steps>
VEMO_INLINE void motionTensorSteps(Steps& steps, const float* frame1, const float* warped, float* ST, float* ST2,
                                   const float* conf, float* derivatives, int height, int width, int pitch,
                                   int nChan, const float* mask) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  float* Ix = derivatives;
  float* Iy = Ix + plane;
  float* Iz = Iy + plane;
  float* Ixx = Iz + plane;
  float* Ixy = Ixx + plane;
  float* Iyy = Ixy + plane;
  float* Ixz = Iyy + plane;
  float* Iyz = Ixz + plane;
  for (int c = 0; c < nChan; ++c) {
    const float* I1 = frame1 + c * plane;
    const float* I2 = warped + c * plane;
    steps.convolveX(Ix, I1, height, width, pitch, mask, 5);
    steps.convolveY(Iy, I1, height, width, pitch, mask, 5);
    steps.diff(Iz, I2, I1, height, width, pitch);
    steps.convolveX(Ixx, Ix, height, width, pitch, mask, 5);
    steps.convolveY(Ixy, Ix, height, width, pitch, mask, 5);
    steps.convolveY(Iyy, Iy, height, width, pitch, mask, 5);
    steps.convolveX(Ixz, Iz, height, width, pitch, mask, 5);
    steps.convolveY(Iyz, Iz, height, width, pitch, mask, 5);
    steps.brightnessTensor(ST, Ix, Iy, Iz, conf, height, width, pitch);
    steps.gradientTensor(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch);
  }
}

}  // namespace vemo
