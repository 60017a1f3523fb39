#include "variational/pcg.h"

#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <utility>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "variational/scratch.h"
#include "pixel/system_matrix.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::TestImage;
using testing::uniformNoise;

// A random symmetric positive definite system with the structure of a
// fixed-point step: positive 2 x 2 blocks (a diagonally dominant data part)
// plus a weighted graph Laplacian on the 4-neighbourhood, assembled by the
// same stage that builds the real systems.
struct SpdSystem {
  SpdSystem(Backend& b, int height, int width, unsigned seed)
      : height(height), width(width), pitch(b.pitchFor(width)),
        scratch(b, static_cast<std::size_t>(pitch) * height), zero(b, height, width), x(b, height, width, 2) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> g(-1.0f, 1.0f), pos(0.2f, 1.0f);
    const FPtmp& fp = scratch.fp();
    const std::size_t plane = static_cast<std::size_t>(pitch) * height;
    for (int y = 0; y < height; ++y)
      for (int xx = 0; xx < width; ++xx) {
        const std::size_t i = static_cast<std::size_t>(y) * pitch + xx;
        const float a = pos(rng), d = pos(rng), c = 0.5f * g(rng) * std::sqrt(a * d);
        const float st[6] = {a, d, 1.0f, c, g(rng), g(rng)};
        for (int k = 0; k < 6; ++k) {
          fp.ST[i + k * plane] = st[k];
          fp.ST2[i + k * plane] = 0.0f;
        }
        fp.dPsiData[i] = 1.0f;
        fp.dPsiGradient[i] = 0.0f;
        fp.dPsiMatch[i] = 0.0f;
        fp.matchU[i] = 0.0f;
        fp.matchV[i] = 0.0f;
        fp.diffX[i] = pos(rng);
        fp.diffY[i] = pos(rng);
      }
    b.makeMatrix(fp.devMatrix, fp.b, fp.dPsiData, fp.dPsiGradient, fp.dPsiMatch, fp.ST, fp.ST2, fp.matchU,
                 fp.matchV, zero.data(), zero.data(), fp.diffX, fp.diffY, height, width, pitch, 2.0f);
  }
  float* du() const { return scratch.fp().du; }
  float* dv() const { return scratch.fp().du + static_cast<std::size_t>(pitch) * height; }
  const float* A() const { return scratch.fp().devMatrix; }
  const float* b() const { return scratch.fp().b; }
  int solve(Backend& backend, int iterations) {
    gPCG(backend, A(), b(), du(), dv(), height, width, pitch, iterations, scratch.cg());
    return backend.cgIterations();
  }
  // Euclidean norm of b - A (du, dv), in double.
  double residualNorm(Backend& backend) {
    backend.residual(A(), b(), du(), dv(), height, width, pitch, x.data());
    double s = 0.0;
    for (float f : x.dense()) s += static_cast<double>(f) * f;
    return std::sqrt(s);
  }
  std::vector<float> solution() const {
    const std::size_t n = 2 * static_cast<std::size_t>(pitch) * height;
    return std::vector<float>(du(), du() + n);
  }
  int height, width, pitch;
  SolverScratch scratch;
  TestImage zero, x;
};

// Guards against a solver that does not converge (wrong step length, wrong
// search-direction update, preconditioner applied to the wrong vector).
TEST(Pcg, ReducesTheResidualOfARandomSpdSystemAndConvergesWithEnoughIterations) {
  CpuBackend backend;
  SpdSystem s(backend, 21, 34, 7);
  const double start = s.residualNorm(backend);
  EXPECT_EQ(s.solve(backend, 10), 10);
  const double after10 = s.residualNorm(backend);
  EXPECT_LT(after10, 0.2 * start);
  s.solve(backend, 300);  // warm start from the previous solution
  EXPECT_LT(s.residualNorm(backend), 1e-3 * start);
}

// A start that already solves the system has r = 0, so r . z = 0 stops the
// loop before any update; zero iterations change nothing either. Guards
// against an update applied before the convergence test.
TEST(Pcg, ExactOrNoIterationsLeaveTheStartUntouchedAndOneIterationAppliesOneUpdate) {
  CpuBackend backend;
  SpdSystem s(backend, 9, 17, 3);
  TestImage start(backend, 9, 17, 2);
  start.fill(uniformNoise(5, -1.0f, 1.0f));
  // b = A * start.
  backend.product(s.A(), start.data(0), start.data(1), 9, 17, s.pitch, s.scratch.fp().b);
  backend.copy(s.du(), start.data(), 2 * start.plane());
  const std::vector<float> before = s.solution();
  EXPECT_EQ(s.solve(backend, 10), 0);
  EXPECT_EQ(s.solution(), before);

  SpdSystem t(backend, 9, 17, 4);
  const std::vector<float> zero = t.solution();
  EXPECT_EQ(t.solve(backend, 0), 0);
  EXPECT_EQ(t.solution(), zero);
  EXPECT_EQ(t.solve(backend, 1), 1);
  EXPECT_NE(t.solution(), zero);
}

// The solver treats du, dv as one image of 2 * height rows.
TEST(Pcg, RefusesIncrementPlanesThatAreNotConsecutive) {
  CpuBackend backend;
  SpdSystem s(backend, 4, 4, 1);
  TestImage other(backend, 4, 4);
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(gPCG(backend, s.A(), s.b(), s.du(), other.data(), 4, 4, s.pitch, 3, s.scratch.cg()), BackendError);
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("dv"), std::string::npos);
}

// A singular 2 x 2 block is preconditioned by the identity; a regular one
// is inverted.
TEST(Pcg, SingularBlocksPassThroughThePreconditioner) {
  CpuBackend backend;
  TestImage singular(backend, 1, 1, kMatrixPlanes), x(backend, 1, 1, 2), y(backend, 1, 1, 2);
  singular.at(0, 0, kA11) = 1e-3f;
  singular.at(0, 0, kA22) = 1e-2f;  // det = 1e-5 <= 1e-4
  x.at(0, 0, 0) = 4.0f;
  x.at(0, 0, 1) = -2.0f;
  backend.blockJacobi(singular.data(), x.data(), y.data(), 1, 1, x.pitch);
  EXPECT_EQ(y.dense(), x.dense());
  singular.at(0, 0, kA22) = 1.0f;  // det = 1e-3: inverted
  backend.blockJacobi(singular.data(), x.data(), y.data(), 1, 1, x.pitch);
  EXPECT_FLOAT_EQ(y.at(0, 0, 0), 4000.0f);
  EXPECT_FLOAT_EQ(y.at(0, 0, 1), -2.0f);
}

// The CPU backend's solve steps with the base-class compositions. These
// call the backend's separate product-and-dot pass, which the fused solve
// never runs, so a fault there shows up as a difference too.
class ComposedStepsBackend : public CpuBackend {
 public:
  void cgPrepare(const float* A, const float* b, const float* du, const CGtmp& t, int h, int w, int pitch) override {
    Backend::cgPrepare(A, b, du, t, h, w, pitch);
  }
  void cgBegin(const float* r, const float* z, int h, int w, int pitch) override { Backend::cgBegin(r, z, h, w, pitch); }
  bool cgActive() override { return Backend::cgActive(); }
  bool cgDirectionInPlace() const override { return false; }
  void cgFirstProduct(const float* A, const float* p, float* q, int h, int w, int pitch) override {
    Backend::cgFirstProduct(A, p, q, h, w, pitch);
  }
  void cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q, int h, int w,
                     int pitch) override {
    Backend::cgNextProduct(A, p, r, z, pNext, q, h, w, pitch);
  }
  void cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int h, int w,
                int pitch) override {
    Backend::cgUpdate(A, du, p, r, q, z, h, w, pitch);
  }
  int cgIterations() override { return Backend::cgIterations(); }
};

// The CPU solve recomputes the product (and, on large levels, the
// preconditioned residual) instead of storing them, forms the next direction
// in place and the rows next to a task's range again from the copies the
// update kept, and reads fewer matrix planes once it has found the couplings
// mirrored, as the assembly writes them. It must give the bits of the
// composed steps for such a matrix and for one whose couplings or A12 copies
// differ (then it reads every plane), on one task, split into several on
// three threads (down to one row a task), and on a level large enough to
// recompute z.
TEST(Pcg, MirroredAndUnmirroredMatricesSolveAsTheComposedSteps) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(3);
  for (const auto& [h, w] : {std::pair{23, 31}, std::pair{3, 3000}, std::pair{200, 90}, std::pair{400, 360}})
    for (int change = 0; change < 4; ++change) {
      CpuBackend cpu;
      ComposedStepsBackend composed;
      SpdSystem a(cpu, h, w, 12), b(composed, h, w, 12);
      for (SpdSystem* s : {&a, &b}) {
        float* A = const_cast<float*>(s->A());
        const std::size_t plane = static_cast<std::size_t>(s->pitch) * s->height;
        const std::size_t i = static_cast<std::size_t>(h > 7 ? 7 : h - 1) * s->pitch + 9;
        if (change == 1) A[i + kNorth * plane] *= 0.5f;
        if (change == 2) A[i + kWest * plane] *= 0.5f;
        if (change == 3) A[i + kA12Precond * plane] *= 0.5f;
      }
      EXPECT_EQ(a.solve(cpu, 12), b.solve(composed, 12)) << h << " " << change;
      EXPECT_EQ(a.solution(), b.solution()) << h << " " << change;
    }
  omp_set_num_threads(threads);
}

}  // namespace
}  // namespace vemo
