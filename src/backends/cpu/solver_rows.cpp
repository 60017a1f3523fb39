#include "backends/cpu/solver_rows.h"

#include <cstddef>

#include "backends/cpu/clones.h"
#include "pixel/diffusivity.h"
#include "pixel/pcg.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"

namespace vemo::cpu {

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
}  // namespace

double rowDot(const float* x, const float* y, int n) { return rowDotInline(x, y, n); }

VEMO_CPU_CLONES
void gradientXRows(float* diffX, const float* grad, const float* channel, int height, int width, int pitch,
                   int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width - 1; ++x) gradientXPixel(diffX, grad, channel, x, y, pitch);
}

VEMO_CPU_CLONES
void gradientYRows(float* diffY, const float* grad, const float* channel, int height, int width, int pitch,
                   int y0, int y1) {
  if (y1 > height - 1) y1 = height - 1;
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) gradientYPixel(diffY, grad, channel, x, y, pitch);
}

VEMO_CPU_CLONES
void normalizeRows(float* x, int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int i = y * pitch; i < y * pitch + width; ++i) normalizePixel(x, i);
}

VEMO_CPU_CLONES
void assembleRows(const AssemblyPlanes& a, int height, int width, int pitch, float alpha, float beta, float gamma,
                  int y0, int y1) {
  const int plane = pitch * height;
  for (int y = y0; y < y1; ++y) {
    for (int x = 0; x < width; ++x) {
      const int i = y * pitch + x;
      DataFactor_kernel(a.ST, a.du, a.dv, a.dPsiData, i, plane);
      GradientFactor_kernel(a.ST2, a.du, a.dv, a.dPsiGradient, i, plane, gamma);
      MatchFactor_kernel(a.u, a.v, a.du, a.dv, a.geoU, a.geoV, a.geoConf, a.dPsiMatch, a.matchU, a.matchV, 1, i,
                         plane, beta);
      MakeMatrix_kernel(a.devMatrix, a.b, a.dPsiData, a.dPsiGradient, a.dPsiMatch, a.ST, a.ST2, a.matchU,
                        a.matchV, a.u, a.v, a.diffX, a.diffY, x, y, height, width, pitch, alpha);
    }
  }
}

VEMO_CPU_CLONES
void residualRows(const float* A, const float* rhs, const float* du, const float* dv, int height, int width,
                  int pitch, float* residual, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) residualPixel(A, rhs, du, dv, x, y, height, width, pitch, residual);
}

VEMO_CPU_CLONES
void productRows(const float* A, const float* du, const float* dv, int height, int width, int pitch, float* res,
                 int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) productPixel(A, du, dv, x, y, height, width, pitch, res);
}

VEMO_CPU_CLONES
void blockJacobiRows(const float* A, const float* x, float* y, int height, int width, int pitch, int y0, int y1) {
  const int plane = pitch * height;
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) blockJacobiPixel(A, x, y, i, plane);
}

VEMO_CPU_CLONES
void saxpy2Rows(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2, int width,
                int pitch, int y0, int y1) {
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) saxpy2Element(acc1, b1, alpha1, acc2, b2, alpha2, i);
}

VEMO_CPU_CLONES
void scaleAndAddRows(float* acc, const float* b, float scale, int width, int pitch, int y0, int y1) {
  for (int r = y0; r < y1; ++r)
    for (int i = r * pitch; i < r * pitch + width; ++i) scaleAndAddElement(acc, b, scale, i);
}

VEMO_CPU_CLONES
void dotRows(const float* x, const float* y, int width, int pitch, double* partials, int y0, int y1) {
  for (int r = y0; r < y1; ++r) {
    const std::size_t o = static_cast<std::size_t>(r) * pitch;
    partials[r] = rowDotInline(x + o, y + o, width);
  }
}

VEMO_CPU_CLONES
void productDotRows(const float* A, const float* p, float* q, int height, int width, int pitch, double* partials,
                    int y0, int y1) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  for (int y = y0; y < y1; ++y) {
    for (int x = 0; x < width; ++x) productPixel(A, p, p + plane, x, y, height, width, pitch, q);
    const std::size_t o = static_cast<std::size_t>(y) * pitch;
    partials[y] = rowDotInline(p + o, q + o, width);
    partials[height + y] = rowDotInline(p + plane + o, q + plane + o, width);
  }
}

VEMO_CPU_CLONES
void updatePreconditionRows(const float* A, float* du, const float* p, float* r, const float* q, float a, float* z,
                            int height, int width, int pitch, double* partials, int y0, int y1) {
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

}  // namespace vemo::cpu
