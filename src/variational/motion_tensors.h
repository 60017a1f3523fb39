// The motion tensors of one pyramid level, composed once from backend
// operations: per channel, the derivatives of frame 1 and of the difference
// to the warped frame 2, then both tensors accumulate that channel's terms.
// A backend may run the same arithmetic in one pass (Backend::motionTensors).
#pragma once

#include <cstddef>

#include "backends/backend.h"
#include "method/motion_tensor_steps.h"

namespace vemo {

// Adds, for every channel of frame1 / warped (nChan planes each), the
// brightness tensor into ST and the gradient tensor into ST2 (six planes
// each; the caller zeroes them once per level). `derivatives` is scratch of
// eight planes. Conf is one plane of per-pixel weights.
void MakeST(Backend& backend, const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
            float* derivatives, int height, int width, int pitch, int nChan);

}  // namespace vemo
