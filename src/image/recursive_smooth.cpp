// Recursive Gaussian smoothing: a second-order causal pass plus a second-order
// anticausal pass per line, summed. The coefficients and the border start
// terms fix the result to the last bit, so the rounding of every step is
// spelled out: "(double)" marks the steps that are evaluated in double and
// rounded once to float, everything else is single precision.
#include "image/recursive_smooth.h"

#include <cmath>
#include <cstddef>
#include <vector>

#ifdef _OPENMP
#include <omp.h>
#endif

#include "math/constants.h"

namespace {

struct RecursiveCoefficients {
  float e;       // exp(-a)
  float e2;      // e * e
  float twoE;    // 2e (exact)
  float k;       // gain that makes the two passes sum to one for a constant
  float aPlus;   // (a + 1) e
  float aMinus;  // (a - 1) e
};

RecursiveCoefficients coefficientsFor(float sigma) {
  RecursiveCoefficients c;
  const float a = static_cast<float>(2.5 / (static_cast<double>(sigma) *
                                            std::sqrt(static_cast<double>(NMath::Pi))));
  c.e = expf(-a);
  c.e2 = c.e * c.e;
  c.twoE = 2.0f * c.e;
  const double oneMinusE = 1.0 - static_cast<double>(c.e);
  c.k = static_cast<float>(oneMinusE * oneMinusE /
                           (2.0 * static_cast<double>(a) * c.e + 1.0 - static_cast<double>(c.e2)));
  c.aPlus = static_cast<float>((static_cast<double>(a) + 1.0) * c.e);
  c.aMinus = static_cast<float>((static_cast<double>(a) - 1.0) * c.e);
  return c;
}

// Filters the n >= 2 samples x[0], x[stride], ... in place. f and b are
// scratch lines of at least n floats.
void smoothLine(float* x, std::ptrdiff_t stride, int n, const RecursiveCoefficients& c,
                float* f, float* b) {
  const float k = c.k, e2 = c.e2, twoE = c.twoE, aPlus = c.aPlus, aMinus = c.aMinus;
  const float startGain = twoE - e2;
  auto at = [&](int i) -> float& { return x[static_cast<std::ptrdiff_t>(i) * stride]; };

  // Causal pass; the first sample counts half, the second starts the
  // recursion from f[0] alone.
  f[0] = 0.5f * at(0);
  f[1] = static_cast<float>(k * (aMinus * at(0) + at(1)) +
                            static_cast<double>(f[0]) * static_cast<double>(startGain));
  for (int i = 2; i < n; ++i) {
    f[i] = k * (aMinus * at(i - 1) + at(i)) + twoE * f[i - 1] - e2 * f[i - 2];
  }

  // Anticausal pass, mirrored start at the far end.
  b[n - 1] = 0.5f * at(n - 1);
  b[n - 2] = (aPlus - e2) * at(n - 1) * k + startGain * b[n - 1];
  for (int i = n - 3; i >= 0; --i) {
    b[i] = (aPlus * at(i + 1) - e2 * at(i + 2)) * k + twoE * b[i + 1] - e2 * b[i + 2];
  }

  for (int i = 0; i < n; ++i) at(i) = f[i] + b[i];
}

// Filters `lines` lines of length n. Line l starts at base + offsetOf(l) and
// steps by stride. Lines are independent, so the thread count never changes a
// result; each thread gets its own pair of scratch lines, allocated once here.
template <typename OffsetOf>
void smoothLines(float* base, int lines, int n, std::ptrdiff_t stride, float sigma,
                 OffsetOf offsetOf) {
  if (base == nullptr || lines <= 0 || n < 2 || !(sigma > 0.0f)) return;
  const RecursiveCoefficients c = coefficientsFor(sigma);
  int threads = 1;
#ifdef _OPENMP
  threads = omp_get_max_threads();
#endif
  std::vector<float> scratch(static_cast<size_t>(threads) * 2 * static_cast<size_t>(n));
#pragma omp parallel for schedule(static) if (static_cast<long long>(lines) * n > 65536)
  for (int l = 0; l < lines; ++l) {
    int t = 0;
#ifdef _OPENMP
    t = omp_get_thread_num();
#endif
    float* f = scratch.data() + static_cast<size_t>(t) * 2 * static_cast<size_t>(n);
    smoothLine(base + offsetOf(l), stride, n, c, f, f + n);
  }
}

// Rows of `planes` planes of width w and height h.
void smoothRows(float* data, int w, int h, int planes, float sigma) {
  smoothLines(data, planes * h, w, 1, sigma,
              [w](int l) { return static_cast<std::ptrdiff_t>(l) * w; });
}

// Columns of `planes` planes; line l is column l % w of plane l / w.
void smoothColumns(float* data, int w, int h, int planes, float sigma) {
  const std::ptrdiff_t plane = static_cast<std::ptrdiff_t>(w) * h;
  smoothLines(data, planes * w, h, w, sigma,
              [w, plane](int l) { return (l / w) * plane + (l % w); });
}

}  // namespace

namespace NFilter {

void recursiveSmoothX(CTensor<float>& t, float sigma) {
  smoothRows(t.data, t.xSize, t.ySize, t.zSize, sigma);
}

void recursiveSmoothY(CTensor<float>& t, float sigma) {
  smoothColumns(t.data, t.xSize, t.ySize, t.zSize, sigma);
}

void recursiveSmoothX(CMatrix<float>& m, float sigma) {
  smoothRows(m.data, m.xSize, m.ySize, 1, sigma);
}

void recursiveSmoothY(CMatrix<float>& m, float sigma) {
  smoothColumns(m.data, m.xSize, m.ySize, 1, sigma);
}

}  // namespace NFilter
