#include "method/filter_masks.h"

#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>

#include "pixel/gauss.h"

namespace vemo {

namespace {

void checkSigma(const char* who, float sigma) {
  if (!(sigma > 0.0f) || !std::isfinite(sigma)) {
    const std::string msg = std::string(who) + ": sigma must be positive and finite, got " + std::to_string(sigma);
    std::cerr << msg << std::endl;
    throw std::invalid_argument(msg);
  }
}

}  // namespace

int gaussianMaskLength(float sigma) {
  int length = (int)(sigma * 6.0f);
  if (length % 2 == 0) ++length;
  return length;
}

std::vector<float> GaussianFilterCreate(float sigma, int& length) {
  checkSigma("GaussianFilterCreate", sigma);
  length = gaussianMaskLength(sigma);
  std::vector<float> mask(length);
  float sum = 0.0f;
  for (int i = 0; i < length; ++i) {
    mask[i] = gauss((float)(i - length / 2), sigma);
    sum += mask[i];
  }
  for (int i = 0; i < length; ++i) mask[i] = mask[i] / sum;
  return mask;
}

std::vector<float> GaussianDerivativeFilterCreate(float sigma, int& length) {
  checkSigma("GaussianDerivativeFilterCreate", sigma);
  length = gaussianMaskLength(sigma);
  std::vector<float> mask(length);
  float sum = 0.0f;
  for (int i = 0; i < length; ++i) {
    mask[i] = gauss_derivative((float)(length / 2 - i), sigma);
    sum += std::fabs(mask[i]);
  }
  for (int i = 0; i < length; ++i) mask[i] = mask[i] / sum;
  return mask;
}

}  // namespace vemo
