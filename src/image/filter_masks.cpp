// Gaussian and finite-difference masks of the host filters.
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>

#include "image/exceptions.h"
#include "image/filter.h"
#include "math/constants.h"

namespace {

// Radius ceil(sigma * precision), the product in single precision; 0 when
// sigma or the product is not positive. Radii that no image could use are
// refused rather than allocated.
int smoothRadius(float sigma, float precision) {
  if (!(sigma > 0.0f)) return 0;
  const float extent = std::ceil(sigma * precision);
  if (!(extent > 0.0f)) return 0;
  if (!(extent <= 1048576.0f)) {
    const std::string message = "CSmooth: sigma " + std::to_string(sigma) + " with precision " +
                                std::to_string(precision) + " gives a mask radius beyond 2^20";
    std::cerr << message << std::endl;
    throw std::invalid_argument(message);
  }
  return static_cast<int>(extent);
}

}  // namespace

template <typename T>
CSmooth<T>::CSmooth(float sigma, float precision)
    : CFilter<T>(2 * smoothRadius(sigma, precision) + 1, smoothRadius(sigma, precision)) {
  const int radius = this->offset;
  T* w = this->data;
  if (radius == 0) {
    w[0] = T(1);
    return;
  }
  // Samples in double, from single-precision sigma^2 and pi.
  const double twoSigma2 = 2.0 * static_cast<double>(sigma * sigma);
  const double norm = std::sqrt(2.0 * static_cast<double>(NMath::Pi)) * sigma;
  for (int i = 0; i <= radius; ++i) {
    const T g = static_cast<T>(std::exp(-(static_cast<double>(i) * i) / twoSigma2) / norm);
    w[radius + i] = g;
    w[radius - i] = g;
  }
  T sum = T(0);
  for (int k = 0; k < this->size; ++k) sum += std::fabs(w[k]);
  const T inverse = T(1) / sum;
  for (int k = 0; k < this->size; ++k) w[k] *= inverse;
}

namespace {

// Derivative masks as exact fractions, index 0 first; size 2 is row 0.
struct Fraction {
  int num, den;
};

constexpr Fraction kDerivatives[9][10] = {
    {{-1, 1}, {1, 1}},
    {{-1, 2}, {0, 1}, {1, 2}},
    {{1, 24}, {-9, 8}, {9, 8}, {-1, 24}},
    {{1, 12}, {-8, 12}, {0, 1}, {8, 12}, {-1, 12}},
    {{-3, 640}, {25, 384}, {-75, 64}, {75, 64}, {-25, 384}, {3, 640}},
    {{-1, 60}, {9, 60}, {-45, 60}, {0, 1}, {45, 60}, {-9, 60}, {1, 60}},
    {{5, 7168}, {-49, 5120}, {245, 3072}, {-1225, 1024}, {1225, 1024}, {-245, 3072},
     {49, 5120}, {-5, 7168}},
    {{3, 840}, {-32, 840}, {168, 840}, {-672, 840}, {0, 1}, {672, 840}, {-168, 840},
     {32, 840}, {-3, 840}},
    {{-35, 294912}, {405, 229376}, {-567, 40960}, {735, 8192}, {-19845, 16384},
     {19845, 16384}, {-735, 8192}, {567, 40960}, {-405, 229376}, {35, 294912}},
};

// The size itself when a mask of that size exists; otherwise a message and
// EFilterNotAvailable.
int availableDerivativeSize(int size) {
  if (size < 2 || size > 10) {
    std::cerr << "Exception EFilterNotAvailable: Mask size: " << size << std::endl;
    throw EFilterNotAvailable();
  }
  return size;
}

}  // namespace

template <typename T>
CDerivative<T>::CDerivative(int size)
    : CFilter<T>(availableDerivativeSize(size), (size - 1) >> 1) {
  // Numerator and denominator are exact in T, so the quotient is the value
  // nearest to the fraction.
  for (int k = 0; k < size; ++k) {
    const Fraction f = kDerivatives[size - 2][k];
    this->data[k] = static_cast<T>(f.num) / static_cast<T>(f.den);
  }
}

template class CSmooth<float>;
template class CSmooth<double>;
template class CDerivative<float>;
template class CDerivative<double>;
