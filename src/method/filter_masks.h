// Sampled one-dimensional Gaussian and Gaussian-derivative masks, built on
// the host in single precision and applied by the convolutions of either
// backend. Tap i weights the sample at offset i - length/2 (correlation).
#pragma once

#include <vector>

namespace vemo {

// Longest mask (all taps of a 2-D one) that the filters of either backend
// accept: the size of the device's mask store.
constexpr int kMaxMaskLength = 4096;

// Number of taps for a given sigma: (int)(6 sigma) rounded up to odd, so
// 0.8 -> 5, 1.0 -> 7, 2.0 -> 13, anything below 1/6 -> 1.
int gaussianMaskLength(float sigma);

// Smoothing mask, normalised to sum 1 (float sum in tap order, then a
// division of every tap). Writes the length to `length`. Prints a message and
// throws std::invalid_argument for sigma <= 0 or not finite.
std::vector<float> GaussianFilterCreate(float sigma, int& length);

// Derivative mask: tap i = (i - length/2) exp(-(i - length/2)^2 / (2 sigma^2)),
// divided by the sum of absolute values (negative taps first, centre 0). A
// length-1 mask is {0/0} = NaN, as that rule gives. Same sigma check.
std::vector<float> GaussianDerivativeFilterCreate(float sigma, int& length);

}  // namespace vemo
