// One red-black successive over-relaxation update of a pixel of the system
// of system_matrix.h: the pixel's coupled 2 x 2 block (du, dv) is solved
// exactly from the current values of its four neighbours, then relaxed by
// omega towards that solution.
//
// A pass updates the pixels of one colour, (x + y) mod 2 == term. Their
// neighbours all have the other colour, so a pass reads no value that it
// writes and may update du and dv in place in any order.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/system_matrix.h"

namespace vemo {

// Below this |det| (compared in double) a block counts as singular: its
// exact solution is taken as zero, so the pixel decays by 1 - omega per pass.
constexpr double kSorSingularDet = 0.0001;

// The first column of row y that has colour `term`.
VEMO_INLINE int sorFirstColumn(int y, int term) { return (term + y) & 1; }

// SORiteration_mem_opt_kernel at pixel (x, y), which must have colour `term`.
// rhs holds two planes; du and dv are single planes of the same pitch.
VEMO_INLINE void SORiteration_mem_opt_kernel(const float* devMatrix, const float* rhs, float* du, float* dv,
                                             int height, int width, float omega, int pitch, int x, int y) {
  const int plane = pitch * height;
  const int idx = y * pitch + x;
  float r1 = rhs[idx];
  float r2 = rhs[idx + plane];
  // Neighbours in the order up, left, right, down; missing ones omitted.
  if (y > 0) {
    const float c = devMatrix[idx + kNorth * plane];
    r1 = r1 - du[idx - pitch] * c;
    r2 = r2 - dv[idx - pitch] * c;
  }
  if (x > 0) {
    const float c = devMatrix[idx + kWest * plane];
    r1 = r1 - du[idx - 1] * c;
    r2 = r2 - dv[idx - 1] * c;
  }
  if (x < width - 1) {
    const float c = devMatrix[idx + kEast * plane];
    r1 = r1 - du[idx + 1] * c;
    r2 = r2 - dv[idx + 1] * c;
  }
  if (y < height - 1) {
    const float c = devMatrix[idx + kSouth * plane];
    r1 = r1 - du[idx + pitch] * c;
    r2 = r2 - dv[idx + pitch] * c;
  }
  const float a11 = devMatrix[idx + kA11 * plane];
  const float a12 = devMatrix[idx + kA12Product * plane];
  const float a22 = devMatrix[idx + kA22 * plane];
  const float det = a11 * a22 - a12 * a12;
  float duStar = 0.0f, dvStar = 0.0f;
  if (::fabs(static_cast<double>(det)) > kSorSingularDet) {
    duStar = (a22 * r1 - a12 * r2) / det;
    dvStar = (a11 * r2 - a12 * r1) / det;
  }
  const float keep = 1.0f - omega;
  du[idx] = fmaf(du[idx], keep, omega * duStar);
  dv[idx] = fmaf(dv[idx], keep, omega * dvStar);
}

}  // namespace vemo
