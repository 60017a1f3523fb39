// Gaussian and Gaussian-derivative point functions of the filter masks.
#pragma once

#include <cmath>

#include "common/hd.h"

namespace vemo {

// exp(-x^2 / (2 sigma^2)) / sigma: the exponential in single precision, the
// 1/sigma factor and the product in double, rounded to single. No
// 1/sqrt(2 pi): masks are normalised afterwards.
VEMO_INLINE float gauss(float x, float sigma) {
  const float e = expf(-x * x / ((sigma + sigma) * sigma));
  return (float)((double)e * (1.0 / (double)sigma));
}

// -x * exp(-x^2 / (2 sigma^2)), all in single precision, unscaled.
VEMO_INLINE float gauss_derivative(float x, float sigma) {
  return -x * expf(-x * x / ((sigma + sigma) * sigma));
}

}  // namespace vemo
