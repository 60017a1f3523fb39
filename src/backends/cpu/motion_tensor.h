// Accumulation of the motion tensors on host planes laid out like device
// images. The derivative passes that feed them are composed once, for every
// backend, in variational/motion_tensors.cpp.
#pragma once

namespace flowcore::cpu {

// ST += brightness-constancy tensor of one channel (six planes), ST2 +=
// gradient-constancy tensor; Conf is one plane of per-pixel weights.
void makeST(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
            int height, int width, int pitch);
void makeST2(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
             const float* Iyz, const float* Conf, int height, int width, int pitch);

}  // namespace flowcore::cpu
