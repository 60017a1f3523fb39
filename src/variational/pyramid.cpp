#include "variational/pyramid.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <limits>
#include <stdexcept>
#include <string>

namespace vemo {

namespace {

// eta = 1 leaves the number of scales undefined (ln 1 = 0 divides it), and
// a factor that is not finite has no level sizes.
void checkGeometry(int height, int width, float eta) {
  if (height < 1 || width < 1 || !std::isfinite(eta) || eta == 1.0f) {
    const std::string msg = "pyramid: need a non-empty frame and a finite eta other than 1, got " +
                            std::to_string(width) + "x" + std::to_string(height) + " and eta " + std::to_string(eta);
    std::cerr << msg << std::endl;
    throw std::invalid_argument(msg);
  }
}

bool shrinks(float eta) { return eta > 0.0f && eta < 1.0f; }

// ceilf(f * size) as a side length. Factors outside (0, 1) make the coarser
// size the driver compares with negative or larger than any frame: such
// sides are held to 0 .. INT_MAX instead of overflowing the conversion.
int levelSide(float f, int size) {
  const float side = ceilf(f * (float)size);
  if (!(side > 0.0f)) return 0;
  if (side >= 2147483648.0f) return std::numeric_limits<int>::max();
  return (int)side;
}

LevelSize sizeForExponent(float e, int height, int width, float eta) {
  const float f = powf(eta, e);
  return LevelSize{levelSide(f, height), levelSide(f, width)};
}

float exponentOf(int s) { return s >= 0 ? (float)s : 0.0f; }

}  // namespace

int pyramidScaleCount(int height, int width, float eta) {
  checkGeometry(height, width, eta);
  // No pyramid outside (0, 1): below 0 the logarithm is undefined and the
  // count is 0; above 1 the count is 0 for frames of 15 pixels or more and,
  // for smaller ones, would ask for levels larger than the frame.
  if (!shrinks(eta)) return 0;
  const float m = (float)std::min(height, width);
  const double r = std::log(kCoarsestDimension / (double)m) / (double)logf(eta);
  const int n = (int)r;
  return n < 0 ? 0 : n;
}

LevelSize pyramidLevelSize(int s, int height, int width, float eta) {
  checkGeometry(height, width, eta);
  return sizeForExponent(exponentOf(s), height, width, eta);
}

LevelSize pyramidPreviousSize(int s, int height, int width, float eta) {
  checkGeometry(height, width, eta);
  return sizeForExponent(exponentOf(s) + 1.0f, height, width, eta);
}

bool pyramidLevelIsDegenerate(int s, int height, int width, float eta) {
  const LevelSize cur = pyramidLevelSize(s, height, width, eta);
  const LevelSize prev = pyramidPreviousSize(s, height, width, eta);
  return cur.width == prev.width && cur.height == prev.height;
}

}  // namespace vemo
