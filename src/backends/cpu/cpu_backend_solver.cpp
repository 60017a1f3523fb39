// The CPU backend's stages of the variational solver: diffusivity, assembly
// and the conjugate-gradient passes.
#include <cstddef>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "backends/cpu/pixel_loop.h"
#include "backends/cpu/row_parallel.h"
#include "backends/cpu/solver_rows.h"
#include "method/scratch_sets.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"

namespace vemo {

using cpu::parallelRows;

double* CpuBackend::partials(int rows) {
  if (partials_.size() < static_cast<std::size_t>(rows)) partials_.resize(rows);
  return partials_.data();
}

// Row partials added in row order in double precision, rounded once.
float CpuBackend::combinePartials(int rows) const {
  double sum = 0.0;
  for (int r = 0; r < rows; ++r) sum += partials_[r];
  return static_cast<float>(sum);
}

void CpuBackend::gradientX(float* diffX, const float* grad, const float* channel, int height, int width,
                           int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { cpu::gradientXRows(diffX, grad, channel, height, width, pitch, y0, y1); });
}

void CpuBackend::gradientY(float* diffY, const float* grad, const float* channel, int height, int width,
                           int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { cpu::gradientYRows(diffY, grad, channel, height, width, pitch, y0, y1); });
}

void CpuBackend::normalize(float* x, int height, int width, int pitch, double epsilon) {
  parallelRows(height, width, [&](int y0, int y1) { cpu::normalizeRows(x, width, pitch, y0, y1, epsilon); });
}

// One pass instead of the composed passes (clears, sums, derivatives, edge
// terms, normalisation: fourteen sweeps over the planes), with the same bits.
void CpuBackend::diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                             float* diffY, int height, int width, int pitch, float*, float*, double epsilon) {
  cpu::checkPlane("diffusivity", height, width, pitch);
  parallelRows(height, width, [&](int y0, int y1) {
    cpu::diffusivityRows(u, v, du, dv, diffX, diffY, height, width, pitch, y0, y1, epsilon);
  });
}

void CpuBackend::dataFactor(const float* ST, const float* du, const float* dv, float* dPsiData, int height,
                            int width, int pitch) {
  const int plane = pitch * height;
  cpu::forEachPixel(height, width, [&](int x, int y) { DataFactor_kernel(ST, du, dv, dPsiData, y * pitch + x, plane); });
}

void CpuBackend::gradientFactor(const float* ST2, const float* du, const float* dv, float* dPsiGradient,
                                int height, int width, int pitch, float gamma) {
  const int plane = pitch * height;
  cpu::forEachPixel(height, width, [&](int x, int y) {
    GradientFactor_kernel(ST2, du, dv, dPsiGradient, y * pitch + x, plane, gamma);
  });
}

void CpuBackend::matchFactor(const float* u, const float* v, const float* du, const float* dv, const float* geoU,
                             const float* geoV, const float* geoConf, float* dPsiMatch, float* matchU,
                             float* matchV, int hypos, int height, int width, int pitch, float beta) {
  const int plane = pitch * height;
  cpu::forEachPixel(height, width, [&](int x, int y) {
    MatchFactor_kernel(u, v, du, dv, geoU, geoV, geoConf, dPsiMatch, matchU, matchV, hypos, y * pitch + x, plane,
                       beta);
  });
}

void CpuBackend::makeMatrix(float* devMatrix, float* b, const float* dPsiData, const float* dPsiGradient,
                            const float* dPsiMatch, const float* ST, const float* ST2, const float* matchU,
                            const float* matchV, const float* u, const float* v, const float* diffX,
                            const float* diffY, int height, int width, int pitch, float alpha) {
  cpu::forEachPixel(height, width, [&](int x, int y) {
    MakeMatrix_kernel(devMatrix, b, dPsiData, dPsiGradient, dPsiMatch, ST, ST2, matchU, matchV, u, v, diffX, diffY,
                      x, y, height, width, pitch, alpha);
  });
}

// The three weights and the matrix row of a pixel depend on no other pixel's
// weights, so one pass computes them all. The weights stay in registers and
// row buffers: the weight planes of `fp` are not written (measured: a fifth
// less memory traffic for the pass with the most streams of a fixed-point
// step).
void CpuBackend::assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU,
                                const float* geoV, const float* geoConf, int height, int width, int pitch,
                                float alpha, float beta, float gamma) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  const cpu::AssemblyPlanes a{fp.ST,    fp.ST2,  fp.du, fp.du + plane, u,           v,
                              geoU,     geoV,    geoConf, fp.diffX,    fp.diffY, fp.devMatrix, fp.b};
  parallelRows(height, width,
               [&](int y0, int y1) { cpu::assembleRows(a, height, width, pitch, alpha, beta, gamma, y0, y1); });
}

void CpuBackend::residual(const float* A, const float* rhs, const float* du, const float* dv, int height, int width,
                          int pitch, float* residual) {
  parallelRows(height, width,
               [&](int y0, int y1) { cpu::residualRows(A, rhs, du, dv, height, width, pitch, residual, y0, y1); });
}

void CpuBackend::product(const float* A, const float* du, const float* dv, int height, int width, int pitch,
                         float* res) {
  parallelRows(height, width, [&](int y0, int y1) { cpu::productRows(A, du, dv, height, width, pitch, res, y0, y1); });
}

void CpuBackend::blockJacobi(const float* A, const float* x, float* y, int height, int width, int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { cpu::blockJacobiRows(A, x, y, height, width, pitch, y0, y1); });
}

void CpuBackend::saxpy2(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2,
                        int height, int width, int pitch) {
  parallelRows(height, width,
               [&](int y0, int y1) { cpu::saxpy2Rows(acc1, b1, alpha1, acc2, b2, alpha2, width, pitch, y0, y1); });
}

void CpuBackend::scaleAndAdd(float* acc, const float* b, float scale, int height, int width, int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { cpu::scaleAndAddRows(acc, b, scale, width, pitch, y0, y1); });
}

float CpuBackend::dot(const float* x, const float* y, int rows, int width, int pitch) {
  double* part = partials(rows);
  parallelRows(rows, width, [&](int y0, int y1) { cpu::dotRows(x, y, width, pitch, part, y0, y1); });
  return combinePartials(rows);
}

float CpuBackend::productDot(const float* A, const float* p, float* q, int height, int width, int pitch) {
  double* part = partials(2 * height);
  parallelRows(height, width,
               [&](int y0, int y1) { cpu::productDotRows(A, p, q, height, width, pitch, part, y0, y1); });
  return combinePartials(2 * height);
}

namespace {

// Row buffers of the solver's passes for the calling thread (see
// solver_rows.h), grown on demand.
float* passScratch(int width, int pitch) {
  thread_local std::vector<float> rows;
  const std::size_t floats = 2 * static_cast<std::size_t>(width) + 6 * static_cast<std::size_t>(pitch);
  if (rows.size() < floats) rows.resize(floats);
  return rows.data();
}

}  // namespace

void CpuBackend::cgPrepare(const float* A, const float* b, const float* du, const CGtmp& t, int height, int width,
                           int pitch) {
  cgMirrored_ = false;
  edgeHeight_ = edgeWidth_ = -1;
  double* part = partials(2 * height);
  parallelRows(height, width,
               [&](int y0, int y1) { cpu::startRows(A, b, du, t.r, t.p, height, width, pitch, part, y0, y1); });
  cgStart(cg_, combinePartials(2 * height));
}

void CpuBackend::cgBegin(const float* r, const float* z, int height, int width, int pitch) {
  cgMirrored_ = false;
  edgeHeight_ = edgeWidth_ = -1;
  cgStart(cg_, dot(r, z, 2 * height, width, pitch));
}

bool CpuBackend::cgActive() { return cg_.active != 0; }

bool CpuBackend::cgDirectionInPlace() const { return true; }

void CpuBackend::cgFirstProduct(const float* A, const float* p, float*, int height, int width, int pitch) {
  if (cg_.active == 0) return;
  double* part = partials(2 * height);
  if (mirroredRows_.size() < static_cast<std::size_t>(height)) mirroredRows_.resize(height);
  unsigned char* mirrored = mirroredRows_.data();
  parallelRows(height, width, [&](int y0, int y1) {
    cpu::firstProductDotRows(A, p, height, width, pitch, part, mirrored, passScratch(width, pitch), y0, y1);
  });
  cgMirrored_ = true;
  for (int y = 0; y < height; ++y) cgMirrored_ = cgMirrored_ && mirrored[y] != 0;
  cgStep(cg_, combinePartials(2 * height));
}

// Whether the update pass stores the preconditioned residual for the next
// direction to read. On a level whose vectors and matrix mostly stay in the
// caches reading z back is cheaper than its two divisions a pixel; on larger
// ones recomputing it moves less memory (measured on 2 cores with an 8 MB
// last-level cache: storing is 15 % faster at 122,000 pixels a level, 10 %
// slower at 166,000). Both give the same bits.
bool CpuBackend::cgStoresZ(int height, int width) {
  return static_cast<long>(height) * width <= kStoredZPixels;
}

void CpuBackend::cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float*,
                               int height, int width, int pitch) {
  if (cg_.active == 0) return;
  if (pNext != p) throw BackendError("cgNextProduct: the CPU backend forms the next direction in place (pNext == p)");
  if (edgeHeight_ != height || edgeWidth_ != width)
    throw BackendError("cgNextProduct: no update of this solve has saved the direction's edge rows");
  double* part = partials(2 * height);
  const float* stored = cgStoresZ(height, width) ? z : nullptr;
  const cpu::RowSplit split = edgeSplit_;
  parallelRows(split, height, [&](int y0, int y1) {
    cpu::nextProductRows(A, pNext, r, stored, cg_.beta, cgMirrored_, height, width, pitch, part,
                         passScratch(width, pitch), edgeRows_.data(), split.chunk, y0, y1);
  });
  cgStep(cg_, combinePartials(2 * height));
}

void CpuBackend::cgUpdate(const float* A, float* du, const float* p, float* r, const float*, float* z, int height,
                          int width, int pitch) {
  if (cg_.active == 0) return;
  double* part = partials(2 * height);
  float* stored = cgStoresZ(height, width) ? z : nullptr;
  // The next direction pass overwrites p in place with the same split of the
  // rows; each range keeps a copy of its first and last rows here for the
  // ranges beside it.
  const cpu::RowSplit split = cpu::rowSplit(height, width);
  float* edges = nullptr;
  if (split.tasks > 1) {
    const std::size_t floats = 4 * static_cast<std::size_t>(split.tasks) * width;
    if (edgeRows_.size() < floats) edgeRows_.resize(floats);
    edges = edgeRows_.data();
  }
  edgeSplit_ = split;
  edgeHeight_ = height;
  edgeWidth_ = width;
  parallelRows(split, height, [&](int y0, int y1) {
    cpu::updateRows(A, du, p, r, stored, cg_.alpha, cgMirrored_, height, width, pitch, part,
                    passScratch(width, pitch), edges, split.chunk, y0, y1);
  });
  cgFinish(cg_, combinePartials(2 * height));
}

int CpuBackend::cgIterations() { return cg_.iterations; }

long long CpuBackend::solverUpdates() { return cg_.updates; }

}  // namespace vemo
