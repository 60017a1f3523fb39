// Per-pixel rows of the conjugate-gradient solver for the system of
// system_matrix.h. A solver vector is two planes (du part, dv part) of
// `plane` = pitch * height floats.
//
// The product and the residual read the four neighbours straight from the
// vectors under the same border conditions (y > 0, x > 0, x < width - 1,
// y < height - 1) that decide which couplings exist; a tiled executor that
// stages the vectors with a one-pixel halo reads the same values, so the
// results do not depend on how pixels are grouped.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/system_matrix.h"

namespace vemo {

// Which of the four neighbours of a pixel exist inside the image.
struct Neighbours {
  bool north, west, east, south;
};

VEMO_INLINE Neighbours neighboursOf(int x, int y, int height, int width) {
  return Neighbours{y > 0, x > 0, x < width - 1, y < height - 1};
}

// Reads a vector component at a plane index.
struct VectorRead {
  const float* a;
  VEMO_INLINE float operator()(int j) const { return a[j]; }
};

// The next search direction beta * p + z at a plane index, the value that
// the in-place update p <- p * beta + z stores.
VEMO_INLINE float directionValue(float p, float beta, float z) { return fmaf(p, beta, z); }

struct DirectionRead {
  const float* p;
  const float* z;
  float beta;
  VEMO_INLINE float operator()(int j) const { return directionValue(p[j], beta, z[j]); }
};

// The couplings of pixel i to its neighbours, read from their own planes.
struct PlaneCouplings {
  const float* A;
  int plane;
  VEMO_INLINE float north(int i, int pitch) const { return A[i + kNorth * plane]; }
  VEMO_INLINE float west(int i, int pitch) const { return A[i + kWest * plane]; }
  VEMO_INLINE float east(int i, int pitch) const { return A[i + kEast * plane]; }
  VEMO_INLINE float south(int i, int pitch) const { return A[i + kSouth * plane]; }
};

// The same couplings for a matrix in which they are mirrored, as the
// assembly writes them: a pixel's coupling to its north neighbour is, bit for
// bit, that neighbour's coupling to the south, and likewise west and east.
// Only the east and south planes are read.
struct MirroredCouplings {
  const float* A;
  int plane;
  VEMO_INLINE float north(int i, int pitch) const { return A[i - pitch + kSouth * plane]; }
  VEMO_INLINE float west(int i, int pitch) const { return A[i - 1 + kEast * plane]; }
  VEMO_INLINE float east(int i, int pitch) const { return A[i + kEast * plane]; }
  VEMO_INLINE float south(int i, int pitch) const { return A[i + kSouth * plane]; }
};

// (A (du, dv)) at index i, the components read through `du` and `dv` and the
// couplings through `c`: the 2 x 2 block (one product and one fused
// multiply-add per row), then the neighbours north, west, east, south with
// the same coupling for both components. Executors that know a pixel lies
// inside pass constant flags so that the tests fold away.
template <class Couplings, class ReadU, class ReadV>
VEMO_INLINE void productWithCouplings(const float* A, Couplings c, ReadU du, ReadV dv, int i, int plane, int pitch,
                                      Neighbours n, float& ru, float& rv) {
  const float a11 = A[i + kA11 * plane], a12 = A[i + kA12Product * plane], a22 = A[i + kA22 * plane];
  const float u0 = du(i), v0 = dv(i);
  ru = fmaf(a12, v0, a11 * u0);
  rv = fmaf(a22, v0, a12 * u0);
  if (n.north) {
    const float k = c.north(i, pitch);
    ru = fmaf(k, du(i - pitch), ru);
    rv = fmaf(k, dv(i - pitch), rv);
  }
  if (n.west) {
    const float k = c.west(i, pitch);
    ru = fmaf(k, du(i - 1), ru);
    rv = fmaf(k, dv(i - 1), rv);
  }
  if (n.east) {
    const float k = c.east(i, pitch);
    ru = fmaf(k, du(i + 1), ru);
    rv = fmaf(k, dv(i + 1), rv);
  }
  if (n.south) {
    const float k = c.south(i, pitch);
    ru = fmaf(k, du(i + pitch), ru);
    rv = fmaf(k, dv(i + pitch), rv);
  }
}

// The same with the couplings read from their planes.
template <class ReadU, class ReadV>
VEMO_INLINE void productAtWith(const float* A, ReadU du, ReadV dv, int i, int plane, int pitch, Neighbours n,
                               float& ru, float& rv) {
  productWithCouplings(A, PlaneCouplings{A, plane}, du, dv, i, plane, pitch, n, ru, rv);
}

// (A (du, dv)) at index i from stored vectors.
VEMO_INLINE void productAt(const float* A, const float* du, const float* dv, int i, int plane, int pitch,
                           Neighbours n, float& ru, float& rv) {
  productAtWith(A, VectorRead{du}, VectorRead{dv}, i, plane, pitch, n, ru, rv);
}

// mvm_opt_kernel at index i: res = A (du, dv).
VEMO_INLINE void productPixelAt(const float* A, const float* du, const float* dv, int i, int plane, int pitch,
                                Neighbours n, float* res) {
  float ru, rv;
  productAt(A, du, dv, i, plane, pitch, n, ru, rv);
  res[i] = ru;
  res[i + plane] = rv;
}

// mvm_opt_kernel at pixel (x, y).
VEMO_INLINE void productPixel(const float* A, const float* du, const float* dv, int x, int y, int height,
                              int width, int pitch, float* res) {
  productPixelAt(A, du, dv, y * pitch + x, pitch * height, pitch, neighboursOf(x, y, height, width), res);
}

// computeResidual_opt_kernel at index i: residual = rhs - A (du, dv), the
// block subtracted first, then each neighbour term in turn; the components
// read through `du` and `dv` as in productAtWith.
template <class ReadU, class ReadV>
VEMO_INLINE void residualAtWith(const float* A, const float* rhs, ReadU du, ReadV dv, int i, int plane, int pitch,
                                Neighbours n, float* residual) {
  const float a11 = A[i + kA11 * plane], a22 = A[i + kA22 * plane];
  const float u0 = du(i), v0 = dv(i);
  float ru = rhs[i] - fmaf(A[i + kA12Product * plane], v0, a11 * u0);
  float rv = rhs[i + plane] - fmaf(a22, v0, A[i + kA12Precond * plane] * u0);
  if (n.north) {
    const float c = A[i + kNorth * plane];
    ru = fmaf(-c, du(i - pitch), ru);
    rv = fmaf(-c, dv(i - pitch), rv);
  }
  if (n.west) {
    const float c = A[i + kWest * plane];
    ru = fmaf(-c, du(i - 1), ru);
    rv = fmaf(-c, dv(i - 1), rv);
  }
  if (n.east) {
    const float c = A[i + kEast * plane];
    ru = fmaf(-c, du(i + 1), ru);
    rv = fmaf(-c, dv(i + 1), rv);
  }
  if (n.south) {
    const float c = A[i + kSouth * plane];
    ru = fmaf(-c, du(i + pitch), ru);
    rv = fmaf(-c, dv(i + pitch), rv);
  }
  residual[i] = ru;
  residual[i + plane] = rv;
}

// The residual at index i from stored vectors.
VEMO_INLINE void residualAt(const float* A, const float* rhs, const float* du, const float* dv, int i, int plane,
                            int pitch, Neighbours n, float* residual) {
  residualAtWith(A, rhs, VectorRead{du}, VectorRead{dv}, i, plane, pitch, n, residual);
}

// computeResidual_opt_kernel at pixel (x, y).
VEMO_INLINE void residualPixel(const float* A, const float* rhs, const float* du, const float* dv, int x, int y,
                               int height, int width, int pitch, float* residual) {
  residualAt(A, rhs, du, dv, y * pitch + x, pitch * height, pitch, neighboursOf(x, y, height, width), residual);
}

// applyBlockJacobiPreconditioner_kernel on values: the 2 x 2 block
// [a c; c d] inverted and applied to (x1, x2); a block with |det| <= 1e-4
// (flat, unmatched) acts as identity. The threshold is 1e-4 in double
// precision; 1e-4f is the float just below it, so comparing in float with
// `>` gives the same answer for every float and stays in vector registers.
VEMO_INLINE void blockJacobiValues(float a, float c, float d, float x1, float x2, float& y1, float& y2) {
  const float det = a * d - c * c;
  y1 = x1;
  y2 = x2;
  if (::fabsf(det) > 1e-4f) {
    y1 = (d * x1 - c * x2) / det;
    y2 = (a * x2 - c * x1) / det;
  }
}

// applyBlockJacobiPreconditioner_kernel at index i, the block read from A.
VEMO_INLINE void blockJacobiPixel(const float* A, const float* x, float* y, int i, int plane) {
  float y1, y2;
  blockJacobiValues(A[i + kA11 * plane], A[i + kA12Precond * plane], A[i + kA22 * plane], x[i], x[i + plane], y1,
                    y2);
  y[i] = y1;
  y[i + plane] = y2;
}

// mySaxpy2_kernel at index i: the solution and the residual updated together.
// One component: acc + alpha b.
VEMO_INLINE float saxpyValue(float acc, float alpha, float b) { return fmaf(alpha, b, acc); }

VEMO_INLINE void saxpy2Element(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2,
                               float alpha2, int i) {
  acc1[i] = saxpyValue(acc1[i], alpha1, b1[i]);
  acc2[i] = saxpyValue(acc2[i], alpha2, b2[i]);
}

// Scale_and_Add_kernel at index i: acc = acc * scale + b.
VEMO_INLINE void scaleAndAddElement(float* acc, const float* b, float scale, int i) {
  acc[i] = directionValue(acc[i], scale, b[i]);
}

}  // namespace vemo
