#include "variational/pyramid.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>

namespace flowcore {

namespace {

void checkGeometry(int height, int width, float eta) {
  if (height < 1 || width < 1 || !(eta > 0.0f && eta < 1.0f)) {
    const std::string msg = "pyramid: need a non-empty frame and 0 < eta < 1, got " + std::to_string(width) +
                            "x" + std::to_string(height) + " and eta " + std::to_string(eta);
    std::cerr << msg << std::endl;
    throw std::invalid_argument(msg);
  }
}

LevelSize sizeForExponent(float e, int height, int width, float eta) {
  const float f = powf(eta, e);
  return LevelSize{(int)ceilf(f * (float)height), (int)ceilf(f * (float)width)};
}

float exponentOf(int s) { return s >= 0 ? (float)s : 0.0f; }

}  // namespace

int pyramidScaleCount(int height, int width, float eta) {
  checkGeometry(height, width, eta);
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

}  // namespace flowcore
