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

// Columns filtered together by one thread in the y direction: walking down
// a block of neighbouring columns reads memory row by row instead of one
// cache line per sample.
constexpr int kBlock = 32;

// Filters in place `cols` lines of n >= 2 samples that lie side by side:
// sample i of line j is x[i * stride + j]. f and b are scratch of at least
// n * cols floats. Each line gets exactly the arithmetic of a lone line.
void smoothBlock(float* x, std::ptrdiff_t stride, int n, int cols, const RecursiveCoefficients& c,
                 float* f, float* b) {
  const float k = c.k, e2 = c.e2, twoE = c.twoE, aPlus = c.aPlus, aMinus = c.aMinus;
  const float startGain = twoE - e2;
  auto row = [&](int i) { return x + static_cast<std::ptrdiff_t>(i) * stride; };
  auto line = [cols](float* s, int i) { return s + static_cast<std::ptrdiff_t>(i) * cols; };

  // Causal pass; the first sample counts half, the second starts the
  // recursion from f[0] alone.
  {
    const float* x0 = row(0);
    const float* x1 = row(1);
    float* f0 = line(f, 0);
    float* f1 = line(f, 1);
    for (int j = 0; j < cols; ++j) {
      f0[j] = 0.5f * x0[j];
      f1[j] = static_cast<float>(k * (aMinus * x0[j] + x1[j]) +
                                 static_cast<double>(f0[j]) * static_cast<double>(startGain));
    }
  }
  for (int i = 2; i < n; ++i) {
    const float* xp = row(i - 1);
    const float* xi = row(i);
    const float* fp = line(f, i - 1);
    const float* fpp = line(f, i - 2);
    float* fi = line(f, i);
    for (int j = 0; j < cols; ++j) {
      fi[j] = k * (aMinus * xp[j] + xi[j]) + twoE * fp[j] - e2 * fpp[j];
    }
  }

  // Anticausal pass, started the same way from the far end.
  {
    const float* xl = row(n - 1);
    float* bl = line(b, n - 1);
    float* bm = line(b, n - 2);
    for (int j = 0; j < cols; ++j) {
      bl[j] = 0.5f * xl[j];
      bm[j] = (aPlus - e2) * xl[j] * k + startGain * bl[j];
    }
  }
  for (int i = n - 3; i >= 0; --i) {
    const float* xn = row(i + 1);
    const float* xnn = row(i + 2);
    const float* bn = line(b, i + 1);
    const float* bnn = line(b, i + 2);
    float* bi = line(b, i);
    for (int j = 0; j < cols; ++j) {
      bi[j] = (aPlus * xn[j] - e2 * xnn[j]) * k + twoE * bn[j] - e2 * bnn[j];
    }
  }

  for (int i = 0; i < n; ++i) {
    float* xi = row(i);
    const float* fi = line(f, i);
    const float* bi = line(b, i);
    for (int j = 0; j < cols; ++j) xi[j] = fi[j] + bi[j];
  }
}

// Filters lines of length n along the middle axis of data shaped
// [outer][n][inner] (rows: [lines][width][1]; columns: [planes][height]
// [width]), in blocks of up to kBlock neighbouring lines. Rows (inner == 1)
// are first copied, kBlock at a time, into a transposed block so that they
// too are filtered side by side. Lines are independent, so neither the
// blocking nor the thread count changes a result; each thread gets its own
// scratch, allocated once here.
void smoothAxis(float* data, int outer, int n, int inner, float sigma) {
  if (data == nullptr || outer <= 0 || inner <= 0 || n < 2 || !(sigma > 0.0f)) return;
  const RecursiveCoefficients c = coefficientsFor(sigma);
  const bool rows = inner == 1;
  // Rows: a block is kBlock whole lines. Columns: kBlock columns of a plane.
  const int cols = rows ? (outer < kBlock ? outer : kBlock) : (inner < kBlock ? inner : kBlock);
  const int blocksPerOuter = rows ? 1 : (inner + cols - 1) / cols;
  const int blocks = rows ? (outer + cols - 1) / cols : outer * blocksPerOuter;
  int threads = 1;
#ifdef _OPENMP
  threads = omp_get_max_threads();
#endif
  const size_t lineBlock = static_cast<size_t>(n) * cols;
  const size_t perThread = (rows ? 3 : 2) * lineBlock;
  std::vector<float> scratch(static_cast<size_t>(threads) * perThread);
#pragma omp parallel for schedule(static) if (static_cast<long long>(outer) * n * inner > 65536)
  for (int blk = 0; blk < blocks; ++blk) {
    int t = 0;
#ifdef _OPENMP
    t = omp_get_thread_num();
#endif
    float* f = scratch.data() + static_cast<size_t>(t) * perThread;
    float* b = f + lineBlock;
    if (rows) {
      const int first = blk * cols;
      const int count = outer - first < cols ? outer - first : cols;
      float* block = b + lineBlock;
      const float* src = data + static_cast<std::ptrdiff_t>(first) * n;
      for (int r = 0; r < count; ++r) {
        const float* line = src + static_cast<std::ptrdiff_t>(r) * n;
        for (int i = 0; i < n; ++i) block[static_cast<size_t>(i) * count + r] = line[i];
      }
      smoothBlock(block, count, n, count, c, f, b);
      float* dst = data + static_cast<std::ptrdiff_t>(first) * n;
      for (int r = 0; r < count; ++r) {
        float* line = dst + static_cast<std::ptrdiff_t>(r) * n;
        for (int i = 0; i < n; ++i) line[i] = block[static_cast<size_t>(i) * count + r];
      }
    } else {
      const int o = blk / blocksPerOuter;
      const int first = (blk % blocksPerOuter) * cols;
      const int width = inner - first < cols ? inner - first : cols;
      float* x = data + static_cast<std::ptrdiff_t>(o) * n * inner + first;
      smoothBlock(x, inner, n, width, c, f, b);
    }
  }
}

// Rows of `planes` planes of width w and height h.
void smoothRows(float* data, int w, int h, int planes, float sigma) {
  smoothAxis(data, planes * h, w, 1, sigma);
}

// Columns of `planes` planes of width w and height h.
void smoothColumns(float* data, int w, int h, int planes, float sigma) {
  smoothAxis(data, planes, h, w, sigma);
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
