// Motion tensors of one pyramid level on host planes laid out like device
// images.
#pragma once

namespace flowcore::cpu {

// Fourth-order central difference (I(x-2) - 8 I(x-1) + 8 I(x+1) - I(x+2)) / 12.
extern const float kDerivativeMask5[5];

// Adds, for every channel of frame1 / warped (channels planes each), the
// brightness tensor into ST and the gradient tensor into ST2 (six planes each;
// the caller zeroes them once per level). Derivatives of frame 1 and of
// Iz = warped - frame1 use the 5-tap mask with the short-mask border rule.
// Conf is one plane of per-pixel weights.
void MakeST(const float* frame1, const float* warped, float* ST, float* ST2, const float* Conf,
            int height, int width, int pitch, int channels);

// The two accumulation steps alone, for callers that have the derivatives.
void makeST(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* Conf,
            int height, int width, int pitch);
void makeST2(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
             const float* Iyz, const float* Conf, int height, int width, int pitch);

}  // namespace flowcore::cpu
