// Element-wise rules of the energy evaluation: squaring and the robust
// penaliser applied to squared magnitudes.
#pragma once

#include <cmath>

#include "common/hd.h"

namespace vemo {

// c = a * b at pixel (x, y); the energy evaluation passes one buffer in all
// three roles, squaring it in place.
VEMO_INLINE void Mult_kernel(float* c, const float* a, const float* b, int pitch, int x, int y) {
  const int i = y * pitch + x;
  c[i] = a[i] * b[i];
}

// x <- sqrt(x + 1e-6): the sum and the root in double precision, rounded
// once to single.
VEMO_INLINE void Psi_kernel(float* v, int pitch, int x, int y) {
  const int i = y * pitch + x;
  v[i] = static_cast<float>(::sqrt(static_cast<double>(v[i]) + 1e-6));
}

}  // namespace vemo
