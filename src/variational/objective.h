// The variational energy of a flow field, as a diagnostic beside the solver
// (for example to watch it fall over the fixed-point iterations). The match
// term is not part of it.
#pragma once

#include "backends/backend.h"
#include "backends/extra_stages.h"

namespace vemo {

// Sum of the width x height pixels of a plane in backend memory: copied to
// the host and added in single precision in row-major order from 0, so the
// value is the same on every backend and for every thread count.
float findSum(Backend& backend, const float* plane, int height, int width, int pitch);

// Per-pixel average energy of the flow (u, v) between two three-channel
// frames (planes of `pitch` floats per row):
//   (S_data + first * S_grad + third * S_smooth) / (width * height),
// each S a sum of sqrt(s^2 + 1e-6): s^2 the squared colour difference
// between frame 1 and frame 2 warped by the flow (per channel), the squared
// magnitude of the gradient of that difference (per channel), and the
// squared gradient magnitude of u plus that of v. Derivatives are central
// differences [-0.5, 0, 0.5] with the short-mask border rule; the vertical
// ones run over the three planes as one image of 3 * height rows, across the
// boundaries between channels. Where the warped position leaves the image the
// difference is zero. `second` is not used.
float gObjectiveValue(Backend& backend, ExtraStages& stages, const float* frame1, const float* frame2,
                      const float* u, const float* v, int height, int width, int pitch, float first, float second,
                      float third);
// The same with the executor that belongs to `backend`.
float gObjectiveValue(Backend& backend, const float* frame1, const float* frame2, const float* u, const float* v,
                      int height, int width, int pitch, float first, float second, float third);

}  // namespace vemo
