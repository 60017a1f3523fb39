// Bodies of the solver's row loops, compiled once per instruction set: the
// including file defines VEMO_ROWS_ISA (the namespace of its copy) and may
// set a target before including this file. Everything a loop calls is inlined
// into it (flatten), so no copy calls code built for another instruction set.
// These files are compiled without errno handling and without floating-point
// traps (see CMakeLists.txt) so that square roots and selects vectorise.

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "backends/cpu/solver_rows.h"
#include "pixel/diffusivity.h"
#include "pixel/pcg.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"

#define VEMO_ROWS_FUNCTION __attribute__((flatten))

namespace vemo::cpu::VEMO_ROWS_ISA {


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

// Rows of the diffusivity pass per piece: the sums of a piece and its two
// halo rows stay in the second-level cache.
constexpr int kDiffusivityPieceRows = 32;

// The interior pixels of rows [y0, y1) read the sums u + du and v + dv of
// rows y0 - 1 to y1 from two planes of them formed once in `sums` (each sum
// is read some fourteen times); the border pixels read the flow planes.
inline __attribute__((always_inline)) void diffusivityPiece(
    const float* __restrict u, const float* __restrict v, const float* __restrict du, const float* __restrict dv,
    float* __restrict diffX, float* __restrict diffY, float* __restrict sums, int height, int width, int pitch,
    int y0, int y1, double epsilon) {
  const int first = y0 > 0 ? y0 - 1 : 0, last = y1 < height ? y1 + 1 : height;
  const std::size_t rows = static_cast<std::size_t>(last - first) * pitch;
  float* __restrict su = sums;
  float* __restrict sv = sums + rows;
  for (int r = first; r < last; ++r) {
    const std::size_t o = static_cast<std::size_t>(r) * pitch, k = static_cast<std::size_t>(r - first) * pitch;
    for (int x = 0; x < width; ++x) {
      su[k + x] = u[o + x] + du[o + x];
      sv[k + x] = v[o + x] + dv[o + x];
    }
  }
  for (int y = y0; y < y1; ++y) {
    int x = 0;
    if (y > 0 && y < height - 1 && width >= 3) {
      diffusivityAt(u, v, du, dv, diffX, diffY, 0, y, height, width, pitch, epsilon);
      const int o = y * pitch, k = (y - first) * pitch;
#pragma GCC ivdep
      for (x = 1; x < width - 1; ++x)
        interiorWeights(su, sv, k + x, pitch, diffX[o + x], diffY[o + x], epsilon);
    }
    for (; x < pitch; ++x) diffusivityAt(u, v, du, dv, diffX, diffY, x, y, height, width, pitch, epsilon);
  }
}

VEMO_ROWS_FUNCTION
void diffusivityRows(const float* u, const float* v, const float* du, const float* dv, float* diffX, float* diffY,
                     int height, int width, int pitch, int y0, int y1, double epsilon) {
  thread_local std::vector<float> sums;
  const std::size_t floats = 2 * static_cast<std::size_t>(kDiffusivityPieceRows + 2) * pitch;
  if (sums.size() < floats) sums.resize(floats);
  for (int a = y0; a < y1; a += kDiffusivityPieceRows)
    diffusivityPiece(u, v, du, dv, diffX, diffY, sums.data(), height, width, pitch, a,
                     y1 - a < kDiffusivityPieceRows ? y1 : a + kDiffusivityPieceRows, epsilon);
}

VEMO_ROWS_FUNCTION
void normalizeRows(float* __restrict x, int width, int pitch, int y0, int y1, double epsilon) {
  for (int y = y0; y < y1; ++y)
    for (int i = y * pitch; i < y * pitch + width; ++i) normalizePixel(x, i, epsilon);
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
  // A row's data blocks first (the weights' roots and divisions, reading the
  // tensors) into row buffers, then the neighbours and the stores: two loops
  // with fewer streams and registers live each than one (measured: a tenth
  // faster at 640 x 480).
  thread_local std::vector<float> rows;
  if (rows.size() < 5 * static_cast<std::size_t>(width)) rows.resize(5 * static_cast<std::size_t>(width));
  float* __restrict k11 = rows.data();
  float* __restrict k12 = k11 + width;
  float* __restrict k22 = k12 + width;
  float* __restrict kb1 = k22 + width;
  float* __restrict kb2 = kb1 + width;
  for (int y = y0; y < y1; ++y) {
    const int o = y * pitch;
#pragma GCC ivdep
    for (int x = 0; x < width; ++x) {
      const int i = o + x;
      const float pd = dataWeight(ST, i, plane, du[i], dv[i]);
      const float pg = gradientWeight(ST2, i, plane, du[i], dv[i], gamma);
      float pm, mu, mv;
      matchSingle(u, v, du, dv, geoU, geoV, geoConf, i, beta, pm, mu, mv);
      const DataBlock k = dataBlockAt(pd, pg, pm, mu, mv, ST, ST2, i, plane);
      k11[x] = k.a11;
      k12[x] = k.a12;
      k22[x] = k.a22;
      kb1[x] = k.b1;
      kb2[x] = k.b2;
    }
    forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
      const int x = i - o;
      smoothnessRowAt(devMatrix, b, DataBlock{k11[x], k12[x], k22[x], kb1[x], kb2[x]}, u, v, diffX, diffY, i, plane,
                      pitch, n.north, n.west, n.east, n.south, alpha);
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

// block-Jacobi(x1, x2) at index i. In a mirrored matrix both copies of A12
// are equal, so the product's copy serves and one plane fewer is streamed.
template <bool kMirrored>
inline __attribute__((always_inline)) void preconditionAt(const float* A, int i, int plane, float x1, float x2,
                                                          float& y1, float& y2) {
  const float c = A[i + (kMirrored ? kA12Product : kA12Precond) * plane];
  blockJacobiValues(A[i + kA11 * plane], c, A[i + kA22 * plane], x1, x2, y1, y2);
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

// A vector component read from a copy: index j of the plane is element
// j + shift of `a`.
struct ShiftedRead {
  const float* a;
  int shift;
  inline __attribute__((always_inline)) float operator()(int j) const { return a[j + shift]; }
};

// The partials of row y of a two-plane vector x against a row pair y2 (the
// u part at y2[0...], the v part at y2[width...]).
inline __attribute__((always_inline)) void rowPartials(const float* x, const float* y2, int y, int height, int width,
                                                       int pitch, int plane, double* partials) {
  const std::size_t o = static_cast<std::size_t>(y) * pitch;
  partials[y] = rowDotInline(x + o, y2, width);
  partials[height + y] = rowDotInline(x + plane + o, y2 + width, width);
}

// Row y of the next direction beta p + block-Jacobi(r), from the row pU, pV
// of the current one into outU, outV (which may be pU, pV themselves: each
// element is read before it is written); with kStoredZ, block-Jacobi(r) is
// read from the plane pair z instead.
template <bool kMirrored, bool kStoredZ>
inline __attribute__((always_inline)) void directionRow(const float* __restrict A, const float* pU, const float* pV,
                                                        const float* __restrict r, const float* __restrict z,
                                                        float beta, int y, int width, int pitch, int plane,
                                                        float* outU, float* outV) {
  const int o = y * pitch;
#pragma GCC ivdep
  for (int x = 0; x < width; ++x) {
    const int i = o + x;
    float z1, z2;
    if (kStoredZ) {
      z1 = z[i];
      z2 = z[i + plane];
    } else {
      preconditionAt<kMirrored>(A, i, plane, r[i], r[i + plane], z1, z2);
    }
    outU[x] = directionValue(pU[x], beta, z1);
    outV[x] = directionValue(pV[x], beta, z2);
  }
}

// Where the edge rows of a split keep the copy of the first (first = true)
// or last row of task `task`: 2 * width floats per row, u part first, two
// rows per task.
inline __attribute__((always_inline)) std::size_t edgeRowOffset(int task, bool first, int width) {
  return (2 * static_cast<std::size_t>(task) + (first ? 0 : 1)) * 2 * width;
}

// The scratch of nextProductRows: q for one row (2 * width floats), then a
// window of three rows (pitch apart) per component.
template <bool kMirrored, bool kStoredZ>
inline __attribute__((always_inline)) void nextProductRowsOf(const float* __restrict A, float* p,
                                                             const float* __restrict r, const float* __restrict z,
                                                             float beta, int height, int width, int pitch,
                                                             double* partials, float* __restrict scratch,
                                                             const float* edges, int chunk, int y0, int y1) {
  const int plane = pitch * height;
  float* q = scratch;
  float* windowU = scratch + 2 * width;
  float* windowV = windowU + 3 * pitch;
  const auto rowOf = [&](int y) { return p + static_cast<std::size_t>(y) * pitch; };
  const auto advance = [&](int y) {
    directionRow<kMirrored, kStoredZ>(A, rowOf(y), rowOf(y) + plane, r, z, beta, y, width, pitch, plane, rowOf(y),
                                      rowOf(y) + plane);
  };
  // A row of a neighbouring range, which that range overwrites concurrently:
  // its new values are formed again from the copy of its old ones.
  const auto outside = [&](int y, int task, bool first, float* outU, float* outV) {
    const float* old = edges + edgeRowOffset(task, first, width);
    directionRow<kMirrored, kStoredZ>(A, old, old + width, r, z, beta, y, width, pitch, plane, outU, outV);
  };
  const int task = chunk > 0 ? y0 / chunk : 0;
  advance(y0);
  for (int y = y0; y < y1; ++y) {
    if (y + 1 < y1) advance(y + 1);
    const int o = y * pitch;
    const auto store = [&](int i, float qu, float qv) {
      q[i - o] = qu;
      q[i - o + width] = qv;
    };
    if (y > y0 && y + 1 < y1) {
      forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
        float qu, qv;
        productRead<kMirrored>(A, VectorRead{p}, VectorRead{p + plane}, i, plane, pitch, n, qu, qv);
        store(i, qu, qv);
      });
    } else {
      // The first and last rows of the range read the rows beyond it: those
      // go into a three-row window together with copies of the rows of this
      // range.
      const std::size_t bytes = sizeof(float) * width;
      if (y > y0) {
        std::memcpy(windowU, rowOf(y - 1), bytes);
        std::memcpy(windowV, rowOf(y - 1) + plane, bytes);
      } else if (y > 0) {
        outside(y - 1, task - 1, false, windowU, windowV);
      }
      std::memcpy(windowU + pitch, rowOf(y), bytes);
      std::memcpy(windowV + pitch, rowOf(y) + plane, bytes);
      if (y + 1 < y1) {
        std::memcpy(windowU + 2 * pitch, rowOf(y + 1), bytes);
        std::memcpy(windowV + 2 * pitch, rowOf(y + 1) + plane, bytes);
      } else if (y + 1 < height) {
        outside(y + 1, task + 1, true, windowU + 2 * pitch, windowV + 2 * pitch);
      }
      const int shift = pitch - o;
      forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
        float qu, qv;
        productRead<kMirrored>(A, ShiftedRead{windowU, shift}, ShiftedRead{windowV, shift}, i, plane, pitch, n, qu,
                               qv);
        store(i, qu, qv);
      });
    }
    rowPartials(p, q, y, height, width, pitch, plane, partials);
  }
}

VEMO_ROWS_FUNCTION
void nextProductRows(const float* A, float* p, const float* r, const float* z, float beta, bool mirrored, int height,
                     int width, int pitch, double* partials, float* scratch, const float* edges, int chunk, int y0,
                     int y1) {
  if (mirrored && z)
    nextProductRowsOf<true, true>(A, p, r, z, beta, height, width, pitch, partials, scratch, edges, chunk, y0, y1);
  else if (mirrored)
    nextProductRowsOf<true, false>(A, p, r, z, beta, height, width, pitch, partials, scratch, edges, chunk, y0, y1);
  else if (z)
    nextProductRowsOf<false, true>(A, p, r, z, beta, height, width, pitch, partials, scratch, edges, chunk, y0, y1);
  else
    nextProductRowsOf<false, false>(A, p, r, z, beta, height, width, pitch, partials, scratch, edges, chunk, y0, y1);
}

template <bool kMirrored, bool kStoredZ>
inline __attribute__((always_inline)) void updateRowsOf(const float* __restrict A, float* __restrict du,
                                                        const float* __restrict p, float* __restrict r, float a,
                                                        int height, int width, int pitch, double* partials,
                                                        float* __restrict zPlanes, float* __restrict scratch, int y0,
                                                        int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    const int o = y * pitch;
    // z goes to its planes when the next pass reads it, else to a row buffer.
    float* zu = kStoredZ ? zPlanes + o : scratch;
    float* zv = kStoredZ ? zPlanes + plane + o : scratch + width;
    forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
      float qu, qv;
      productRead<kMirrored>(A, VectorRead{p}, VectorRead{p + plane}, i, plane, pitch, n, qu, qv);
      du[i] = saxpyValue(du[i], a, p[i]);
      du[i + plane] = saxpyValue(du[i + plane], a, p[i + plane]);
      const float r1 = saxpyValue(r[i], -a, qu), r2 = saxpyValue(r[i + plane], -a, qv);
      r[i] = r1;
      r[i + plane] = r2;
      preconditionAt<kMirrored>(A, i, plane, r1, r2, zu[i - o], zv[i - o]);
    });
    partials[y] = rowDotInline(r + o, zu, width);
    partials[height + y] = rowDotInline(r + plane + o, zv, width);
  }
}

VEMO_ROWS_FUNCTION
void updateRows(const float* A, float* du, const float* p, float* r, float* z, float a, bool mirrored, int height,
                int width, int pitch, double* partials, float* scratch, float* edges, int chunk, int y0, int y1) {
  if (mirrored && z)
    updateRowsOf<true, true>(A, du, p, r, a, height, width, pitch, partials, z, scratch, y0, y1);
  else if (mirrored)
    updateRowsOf<true, false>(A, du, p, r, a, height, width, pitch, partials, z, scratch, y0, y1);
  else if (z)
    updateRowsOf<false, true>(A, du, p, r, a, height, width, pitch, partials, z, scratch, y0, y1);
  else
    updateRowsOf<false, false>(A, du, p, r, a, height, width, pitch, partials, z, scratch, y0, y1);
  if (edges && y1 > y0) {
    // The range's first and last rows of p, for the neighbouring ranges of
    // the next direction pass, which overwrites p in place.
    const int task = y0 / chunk;
    const std::size_t plane = static_cast<std::size_t>(pitch) * height, bytes = sizeof(float) * width;
    for (const bool first : {true, false}) {
      const int y = first ? y0 : y1 - 1;
      float* copy = edges + edgeRowOffset(task, first, width);
      std::memcpy(copy, p + static_cast<std::size_t>(y) * pitch, bytes);
      std::memcpy(copy + width, p + plane + static_cast<std::size_t>(y) * pitch, bytes);
    }
  }
}

VEMO_ROWS_FUNCTION
void startRows(const float* __restrict A, const float* __restrict b, const float* __restrict du,
               float* __restrict r, float* __restrict p, int height, int width, int pitch, double* partials, int y0,
               int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
      residualAt(A, b, du, du + plane, i, plane, pitch, n, r);
      blockJacobiPixel(A, r, p, i, plane);
    });
    const std::size_t o = static_cast<std::size_t>(y) * pitch;
    partials[y] = rowDotInline(r + o, p + o, width);
    partials[height + y] = rowDotInline(r + plane + o, p + plane + o, width);
  }
}

VEMO_ROWS_FUNCTION
void firstProductDotRows(const float* __restrict A, const float* __restrict p, int height, int width, int pitch,
                         double* partials, unsigned char* mirrored, float* __restrict scratch, int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    const int o = y * pitch;
    forRowPixels(y, height, width, pitch, [&](int i, Neighbours n) {
      float qu, qv;
      productRead<false>(A, VectorRead{p}, VectorRead{p + plane}, i, plane, pitch, n, qu, qv);
      scratch[i - o] = qu;
      scratch[i - o + width] = qv;
    });
    rowPartials(p, scratch, y, height, width, pitch, plane, partials);
    mirrored[y] = rowMirrored(A, y, width, pitch, plane) ? 1 : 0;
  }
}

}  // namespace vemo::cpu::VEMO_ROWS_ISA

#undef VEMO_ROWS_FUNCTION
