// Geometry of the coarse-to-fine pyramid: number of scales and level sizes
// for a frame and a reduction factor eta.
#pragma once

namespace vemo {

// Intended smallest dimension of the coarsest level.
constexpr double kCoarsestDimension = 15.0;

struct LevelSize {
  int height;
  int width;
};

// Number of scales: trunc(ln(15 / min(height, width)) / ln(eta)), at least 0.
// The logarithm of the ratio is taken in double, ln(eta) in single and
// widened. 640 x 480 with eta 0.95 gives 67. A factor outside (0, 1) gives 0:
// no pyramid, only the full-size passes. Prints a message and throws
// std::invalid_argument for eta = 1 (no number of scales), an eta that is
// not finite, or a size below 1.
int pyramidScaleCount(int height, int width, float eta);

// Size of level s: ceilf(powf(eta, e) * size) with e = s for s >= 0 and
// e = 0 (full size) for s < 0, all in single precision, held to 0 .. INT_MAX.
LevelSize pyramidLevelSize(int s, int height, int width, float eta);

// Size of the next coarser level as the driver compares it: exponent e + 1
// (so 1 for every s < 0).
LevelSize pyramidPreviousSize(int s, int height, int width, float eta);

// A level whose width and height both equal those of the next coarser level
// is skipped by the driver (it would repeat the same computation).
bool pyramidLevelIsDegenerate(int s, int height, int width, float eta);

}  // namespace vemo
