// Bodies of the solver's row loops, compiled once per instruction set: the
// including file defines VEMO_ROWS_ISA (the namespace of its copy) and may
// set a target before including this file. Everything a loop calls is inlined
// into it (flatten), so no copy calls code built for another instruction set.
// These files are compiled without errno handling and without floating-point
// traps (see CMakeLists.txt) so that square roots and selects vectorise.

#include <cstddef>
#include <cstring>

#include "backends/cpu/solver_rows.h"
#include "pixel/diffusivity.h"
#include "pixel/pcg.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"

#define VEMO_ROWS_FUNCTION __attribute__((flatten))

namespace flowcore::cpu::VEMO_ROWS_ISA {


namespace {

inline __attribute__((always_inline)) double rowDotInline(const float* x, const float* y, int n) {
  double l0 = 0.0, l1 = 0.0, l2 = 0.0, l3 = 0.0;
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    l0 += static_cast<double>(x[i] * y[i]);
    l1 += static_cast<double>(x[i + 1] * y[i + 1]);
    l2 += static_cast<double>(x[i + 2] * y[i + 2]);
    l3 += static_cast<double>(x[i + 3] * y[i + 3]);
  }
  for (; i < n; ++i) l0 += static_cast<double>(x[i] * y[i]);
  return (l0 + l1) + (l2 + l3);
}

// Calls f(i, neighbours) for every pixel of row y. Pixels off the image border
// get constant flags, so that the border tests fold away and the inner loop
// vectorises; the arithmetic per pixel is the same either way.
template <class F>
inline __attribute__((always_inline)) void forRowPixels(int y, int height, int width, int pitch, F&& f) {
  const int o = y * pitch;
  if (y == 0 || y == height - 1 || width < 3) {
    for (int x = 0; x < width; ++x) f(o + x, neighboursOf(x, y, height, width));
    return;
  }
  f(o, neighboursOf(0, y, height, width));
  // Every caller writes only its own pixel's entries (in planes that it does
  // not read at other pixels), so iterations are independent.
#pragma GCC ivdep
  for (int i = o + 1; i < o + width - 1; ++i) f(i, Neighbours{true, true, true, true});
  f(o + width - 1, neighboursOf(width - 1, y, height, width));
}

}  // namespace

VEMO_ROWS_FUNCTION
void gradientXRows(float* __restrict diffX, const float* __restrict grad, const float* __restrict channel,
                   int height, int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width - 1; ++x) gradientXPixel(diffX, grad, channel, x, y, pitch);
}

VEMO_ROWS_FUNCTION
void gradientYRows(float* __restrict diffY, const float* __restrict grad, const float* __restrict channel,
                   int height, int width, int pitch, int y0, int y1) {
  if (y1 > height - 1) y1 = height - 1;
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) gradientYPixel(diffY, grad, channel, x, y, pitch);
}

VEMO_ROWS_FUNCTION
void normalizeRows(float* __restrict x, int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int i = y * pitch; i < y * pitch + width; ++i) normalizePixel(x, i);
}

// The planes as restrict-qualified parameters: the compiler then needs no
// run-time overlap checks between the many streams, which it would give up
// on, falling back to scalar code.
inline __attribute__((always_inline)) void assembleRowsOf(
    const float* __restrict ST, const float* __restrict ST2, const float* __restrict du, const float* __restrict dv,
    const float* __restrict u, const float* __restrict v, const float* __restrict geoU, const float* __restrict geoV,
    const float* __restrict geoConf, const float* __restrict diffX, const float* __restrict diffY,
    float* __restrict devMatrix, float* __restrict b, int height,
    int width, int pitch, float alpha, float beta, float gamma, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
      const float pd = dataWeight(ST, i, plane, du[i], dv[i]);
      const float pg = gradientWeight(ST2, i, plane, du[i], dv[i], gamma);
      float pm, mu, mv;
      matchSingle(u, v, du, dv, geoU, geoV, geoConf, i, beta, pm, mu, mv);
      makeMatrixAt(devMatrix, b, pd, pg, pm, mu, mv, ST, ST2, u, v, diffX, diffY, i, plane, pitch, n.north, n.west,
                   n.east, n.south, alpha);
    });
  }
}

VEMO_ROWS_FUNCTION
void assembleRows(const AssemblyPlanes& a, int height, int width, int pitch, float alpha, float beta, float gamma,
                  int y0, int y1) {
  assembleRowsOf(a.ST, a.ST2, a.du, a.dv, a.u, a.v, a.geoU, a.geoV, a.geoConf, a.diffX, a.diffY, a.devMatrix, a.b,
                 height, width, pitch, alpha, beta, gamma, y0, y1);
}

VEMO_ROWS_FUNCTION
void residualRows(const float* __restrict A, const float* __restrict rhs, const float* __restrict du,
                  const float* __restrict dv, int height, int width, int pitch, float* __restrict residual, int y0,
                  int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y)
    forRowPixels(y, height, width, pitch,
                 [&](int i, Neighbours n) { residualAt(A, rhs, du, dv, i, plane, pitch, n, residual); });
}

VEMO_ROWS_FUNCTION
void productRows(const float* __restrict A, const float* __restrict du, const float* __restrict dv, int height,
                 int width, int pitch, float* __restrict res, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y)
    forRowPixels(y, height, width, pitch,
                 [&](int i, Neighbours n) { productPixelAt(A, du, dv, i, plane, pitch, n, res); });
}

VEMO_ROWS_FUNCTION
void blockJacobiRows(const float* __restrict A, const float* __restrict x, float* __restrict y, int height,
                     int width, int pitch, int y0, int y1) {
  const int plane = pitch * height;
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) blockJacobiPixel(A, x, y, i, plane);
}

VEMO_ROWS_FUNCTION
void saxpy2Rows(float* __restrict acc1, const float* __restrict b1, float alpha1, float* __restrict acc2,
                const float* __restrict b2, float alpha2, int width, int pitch, int y0, int y1) {
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) saxpy2Element(acc1, b1, alpha1, acc2, b2, alpha2, i);
}

VEMO_ROWS_FUNCTION
void scaleAndAddRows(float* __restrict acc, const float* __restrict b, float scale, int width, int pitch, int y0,
                     int y1) {
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) scaleAndAddElement(acc, b, scale, i);
}

VEMO_ROWS_FUNCTION
void dotRows(const float* __restrict x, const float* __restrict y, int width, int pitch, double* partials, int y0,
             int y1) {
  for (int r = y0; r < y1; ++r) {
    const std::size_t o = static_cast<std::size_t>(r) * pitch;
    partials[r] = rowDotInline(x + o, y + o, width);
  }
}

VEMO_ROWS_FUNCTION
void productDotRows(const float* __restrict A, const float* __restrict p, float* __restrict q, int height,
                    int width, int pitch, double* partials, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    forRowPixels(y, height, width, pitch,
                 [&](int i, Neighbours n) { productPixelAt(A, p, p + plane, i, plane, pitch, n, q); });
    const std::size_t o = static_cast<std::size_t>(y) * pitch;
    partials[y] = rowDotInline(p + o, q + o, width);
    partials[height + y] = rowDotInline(p + plane + o, q + plane + o, width);
  }
}

VEMO_ROWS_FUNCTION
void nextDirectionRows(const float* __restrict p, const float* __restrict z, float beta, float* __restrict pNext,
                       int width, int pitch, int y0, int y1) {
  const DirectionRead next{p, z, beta};
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) pNext[i] = next(i);
}

VEMO_ROWS_FUNCTION
void updatePreconditionRows(const float* __restrict A, float* __restrict du, const float* __restrict p,
                            float* __restrict r, const float* __restrict q, float a, float* __restrict z, int height,
                            int width, int pitch, double* partials, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    const int o = y * pitch;
    for (int i = o; i < o + width; ++i) {
      saxpy2Element(du, p, a, r, q, -a, i);
      saxpy2Element(du + plane, p + plane, a, r + plane, q + plane, -a, i);
      blockJacobiPixel(A, r, z, i, plane);
    }
    partials[y] = rowDotInline(r + o, z + o, width);
    partials[height + y] = rowDotInline(r + plane + o, z + plane + o, width);
  }
}

// (A (u, v)) at index i with the couplings read from their planes, or
// mirrored from the east and south planes alone.
template <bool kMirrored, class ReadU, class ReadV>
inline __attribute__((always_inline)) void productRead(const float* A, ReadU u, ReadV v, int i, int plane, int pitch,
                                                       Neighbours n, float& ru, float& rv) {
  if (kMirrored)
    productWithCouplings(A, MirroredCouplings{A, plane}, u, v, i, plane, pitch, n, ru, rv);
  else
    productWithCouplings(A, PlaneCouplings{A, plane}, u, v, i, plane, pitch, n, ru, rv);
}

// Whether row y of A is mirrored: both copies of A12 equal, each north
// coupling equal to the south coupling of the pixel above and each west
// coupling equal to the east coupling of the pixel to the left, bit for bit.
inline __attribute__((always_inline)) bool rowMirrored(const float* A, int y, int width, int pitch, int plane) {
  const std::size_t o = static_cast<std::size_t>(y) * pitch;
  const std::size_t bytes = sizeof(float) * width;
  bool same = std::memcmp(A + o + kA12Precond * plane, A + o + kA12Product * plane, bytes) == 0;
  if (y > 0) same = same && std::memcmp(A + o + kNorth * plane, A + o - pitch + kSouth * plane, bytes) == 0;
  if (width > 1) same = same && std::memcmp(A + o + 1 + kWest * plane, A + o + kEast * plane, bytes - sizeof(float)) == 0;
  return same;
}

VEMO_ROWS_FUNCTION
void firstProductDotRows(const float* __restrict A, const float* __restrict p, float* __restrict q, int height,
                         int width, int pitch, double* partials, unsigned char* mirrored, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    forRowPixels(y, height, width, pitch,
                 [&](int i, Neighbours n) { productPixelAt(A, p, p + plane, i, plane, pitch, n, q); });
    const std::size_t o = static_cast<std::size_t>(y) * pitch;
    partials[y] = rowDotInline(p + o, q + o, width);
    partials[height + y] = rowDotInline(p + plane + o, q + plane + o, width);
    mirrored[y] = rowMirrored(A, y, width, pitch, plane) ? 1 : 0;
  }
}

VEMO_ROWS_FUNCTION
void mirroredProductDotRows(const float* __restrict A, const float* __restrict p, float* __restrict q, int height,
                            int width, int pitch, double* partials, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
      float qu, qv;
      productRead<true>(A, VectorRead{p}, VectorRead{p + plane}, i, plane, pitch, n, qu, qv);
      q[i] = qu;
      q[i + plane] = qv;
    });
    const std::size_t o = static_cast<std::size_t>(y) * pitch;
    partials[y] = rowDotInline(p + o, q + o, width);
    partials[height + y] = rowDotInline(p + plane + o, q + plane + o, width);
  }
}

}  // namespace flowcore::cpu::VEMO_ROWS_ISA

#undef VEMO_ROWS_FUNCTION
