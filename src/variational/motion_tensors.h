// The motion tensors of one pyramid level, composed once from backend
// operations: per channel, the derivatives of frame 1 and of the difference
// to the warped frame 2, then both tensors accumulate that channel's terms.
#pragma once

#include "backends/backend.h"

namespace flowcore {

// Fourth-order central difference (I(x-2) - 8 I(x-1) + 8 I(x+1) - I(x+2)) / 12.
extern const float kDerivativeMask5[5];

// Adds, for every channel of frame1 / warped (nChan planes each), the
// brightness tensor into ST and the gradient tensor into ST2 (six planes
// each; the caller zeroes them once per level). `derivatives` is scratch of
// eight planes. Conf is one plane of per-pixel weights.
void MakeST(Backend& backend, const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
            float* derivatives, int height, int width, int pitch, int nChan);

}  // namespace flowcore
