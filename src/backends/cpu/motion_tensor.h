// Accumulation of the motion tensors on host planes laid out like device
// images: per channel from its derivative planes (the composed passes of
// variational/motion_tensors.h), or in one pass that forms the derivatives
// a few rows at a time.
#pragma once

namespace vemo::cpu {

// ST += brightness-constancy tensor of one channel (six planes), ST2 +=
// gradient-constancy tensor; Conf is one plane of per-pixel weights.
void makeST(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
            int height, int width, int pitch);
void makeST2(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
             const float* Iyz, const float* Conf, int height, int width, int pitch);

// Both tensors of nChan channels (planes pitch * height floats apart) added
// into ST and ST2, with the bits of the composed passes: per channel the
// tiled derivative passes with `mask` (length below 8), Iz = warped - frame1,
// then makeST and makeST2.
void motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf, int height,
                   int width, int pitch, int nChan, const float* mask, int length);

}  // namespace vemo::cpu
