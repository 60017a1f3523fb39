// Red-black SOR and Gauss-Seidel: agreement with an independent red-black
// sweep, border and singular-block rules, thread invariance, and the same
// solution as the conjugate gradient on the system of a real pyramid level.
#include "variational/sor.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "variational/pcg.h"
#include "variational/real_level_test_util.h"
#include "pixel/system_matrix.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::RealLevel;
using testing::TestImage;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// A random system with positive definite 2 x 2 blocks and negative
// couplings. Couplings that point outside the image hold NaN, and so do the
// padding columns of du and dv: a pass that reads either spreads NaN.
struct RandomSystem {
  RandomSystem(Backend& b, int height, int width, unsigned seed)
      : A(b, height, width, kMatrixPlanes), rhs(b, height, width, 2), du(b, height, width), dv(b, height, width),
        height(height), width(width), pitch(b.pitchFor(width)) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> diag(2.0f, 4.0f), off(-1.0f, 1.0f), coupling(-0.5f, 0.0f);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        A.at(x, y, kA11) = diag(rng);
        A.at(x, y, kA22) = diag(rng);
        A.at(x, y, kA12Precond) = A.at(x, y, kA12Product) = off(rng);
        A.at(x, y, kNorth) = y > 0 ? coupling(rng) : kNaN;
        A.at(x, y, kWest) = x > 0 ? coupling(rng) : kNaN;
        A.at(x, y, kEast) = x < width - 1 ? coupling(rng) : kNaN;
        A.at(x, y, kSouth) = y < height - 1 ? coupling(rng) : kNaN;
        rhs.at(x, y, 0) = 4.0f * off(rng);
        rhs.at(x, y, 1) = 4.0f * off(rng);
        du.at(x, y) = off(rng);
        dv.at(x, y) = off(rng);
      }
    for (int y = 0; y < height; ++y)
      for (int x = width; x < pitch; ++x) du.at(x, y) = dv.at(x, y) = kNaN;
  }

  // One sweep computed here in double: colour 0, then colour 1, each pixel's
  // block solved exactly from the current neighbours, then relaxed.
  void referenceSweep(std::vector<double>& u, std::vector<double>& v, double omega) const {
    for (int term = 0; term < 2; ++term)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          if ((x + y) % 2 != term) continue;
          const int i = y * width + x;
          double r1 = rhs.at(x, y, 0), r2 = rhs.at(x, y, 1);
          const int nx[4] = {x, x - 1, x + 1, x}, ny[4] = {y - 1, y, y, y + 1};
          const int plane[4] = {kNorth, kWest, kEast, kSouth};
          for (int k = 0; k < 4; ++k) {
            if (nx[k] < 0 || ny[k] < 0 || nx[k] >= width || ny[k] >= height) continue;
            const double c = A.at(x, y, plane[k]);
            r1 -= c * u[ny[k] * width + nx[k]];
            r2 -= c * v[ny[k] * width + nx[k]];
          }
          const double a = A.at(x, y, kA11), b = A.at(x, y, kA12Product), d = A.at(x, y, kA22);
          const double det = a * d - b * b;
          u[i] = (1 - omega) * u[i] + omega * (d * r1 - b * r2) / det;
          v[i] = (1 - omega) * v[i] + omega * (a * r2 - b * r1) / det;
        }
  }

  TestImage A, rhs, du, dv;
  int height, width, pitch;
};

std::vector<double> asDouble(const TestImage& img) {
  const std::vector<float> d = img.dense();
  return std::vector<double>(d.begin(), d.end());
}

TEST(RedBlackSor, SweepsMatchAnIndependentRedBlackGaussSeidelWithoutReadingOutsideTheImage) {
  // 37 x 23: neither dimension a multiple of 16 or even; padded rows.
  CpuBackend backend(16, 3);
  for (float omega : {1.0f, 1.7f, 0.6f}) {
    RandomSystem s(backend, 23, 37, 11);
    std::vector<double> u = asDouble(s.du), v = asDouble(s.dv);
    for (int sweep = 0; sweep < 3; ++sweep) s.referenceSweep(u, v, omega);
    gRedBlack(backend, s.A.data(), s.rhs.data(), s.du.data(), s.dv.data(), 23, 37, s.pitch, 3, omega);
    const std::vector<float> du = s.du.dense(), dv = s.dv.dense();
    for (std::size_t i = 0; i < u.size(); ++i) {
      ASSERT_NEAR(du[i], u[i], 1e-5) << "omega " << omega << " pixel " << i;
      ASSERT_NEAR(dv[i], v[i], 1e-5) << "omega " << omega << " pixel " << i;
    }
  }
}

TEST(RedBlackSor, PassesDoNotDependOnTheThreadCountAndRefuseAColourOtherThanZeroOrOne) {
  CpuBackend backend;
  const int h = 120, w = 161;  // above the size where rows are shared out
  RandomSystem a(backend, h, w, 5), b(backend, h, w, 5);
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  gRedBlack(backend, a.A.data(), a.rhs.data(), a.du.data(), a.dv.data(), h, w, a.pitch, 4, 1.3f);
  omp_set_num_threads(4);
  gRedBlack(backend, b.A.data(), b.rhs.data(), b.du.data(), b.dv.data(), h, w, b.pitch, 4, 1.3f);
  omp_set_num_threads(threads);
  EXPECT_EQ(a.du.dense(), b.du.dense());
  EXPECT_EQ(a.dv.dense(), b.dv.dense());

  const std::unique_ptr<ExtraStages> stages = makeExtraStages(backend);
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(stages->sorIteration(a.A.data(), a.rhs.data(), a.du.data(), a.dv.data(), h, w, 2, 1.0f, a.pitch),
               std::invalid_argument);
  EXPECT_THROW(stages->sorIteration(a.A.data(), a.rhs.data(), a.du.data(), a.dv.data(), h, w, 0, 1.0f, w - 1),
               std::invalid_argument);
  ::testing::internal::GetCapturedStderr();
}

TEST(RedBlackSor, SingularBlockDecaysByOneMinusOmegaPerSweepAndNoIterationsChangeNothing) {
  CpuBackend backend;
  RandomSystem s(backend, 9, 10, 3);
  // (4, 5): an empty block; (6, 2): det = 4e-5, below the singularity bound.
  s.A.at(4, 5, kA11) = s.A.at(4, 5, kA22) = s.A.at(4, 5, kA12Product) = s.A.at(4, 5, kA12Precond) = 0.0f;
  s.A.at(6, 2, kA11) = 0.01f;
  s.A.at(6, 2, kA22) = 0.004f;
  s.A.at(6, 2, kA12Product) = s.A.at(6, 2, kA12Precond) = 0.0f;
  s.du.at(4, 5) = 0.75f;
  s.dv.at(4, 5) = -3.0f;
  s.du.at(6, 2) = 2.0f;
  const std::vector<float> before = s.du.dense();
  gRedBlack(backend, s.A.data(), s.rhs.data(), s.du.data(), s.dv.data(), 9, 10, s.pitch, 0, 0.5f);
  gRedBlack(backend, s.A.data(), s.rhs.data(), s.du.data(), s.dv.data(), 9, 10, s.pitch, -2, 0.5f);
  EXPECT_EQ(s.du.dense(), before);
  gRedBlack(backend, s.A.data(), s.rhs.data(), s.du.data(), s.dv.data(), 9, 10, s.pitch, 3, 0.5f);
  EXPECT_EQ(s.du.at(4, 5), 0.75f * 0.125f);
  EXPECT_EQ(s.dv.at(4, 5), -3.0f * 0.125f);
  EXPECT_EQ(s.du.at(6, 2), 2.0f * 0.125f);
  gRedBlack(backend, s.A.data(), s.rhs.data(), s.du.data(), s.dv.data(), 9, 10, s.pitch, 200, 1.2f);
  EXPECT_LT(std::fabs(s.du.at(4, 5)), 1e-12f);
}

// A real pyramid level's system solved four ways. The conjugate gradient
// runs until its stopping test; SOR, the host SOR driver and Gauss-Seidel
// must reach the same increment.
TEST(RedBlackSor, ReachesTheConjugateGradientSolutionOnARealPyramidLevel) {
  CpuBackend backend;
  const int h = 72, w = 96;
  RealLevel level(backend, h, w);
  if (!level.load("chairs_0")) GTEST_SKIP() << "no real frames";
  level.assemble(30.0f, 5.0f);
  const FPtmp& fp = level.scratch.fp();
  const int p = level.pitch;

  TestImage cg(backend, h, w, 2);
  gPCG(backend, fp.devMatrix, fp.b, cg.data(0), cg.data(1), h, w, p, 5000, level.scratch.cg());
  const int updates = backend.cgIterations();
  ASSERT_LT(updates, 5000) << "the conjugate gradient did not reach its stopping test";
  const std::vector<float> ref = cg.dense();
  double scale = 0.0;
  for (float x : ref) scale = std::max(scale, static_cast<double>(std::fabs(x)));
  ASSERT_GT(scale, 0.01);

  auto maxDifference = [&](const std::vector<float>& a) {
    double d = 0.0;
    for (std::size_t i = 0; i < a.size(); ++i) d = std::max(d, static_cast<double>(std::fabs(a[i] - ref[i])));
    return d;
  };

  TestImage sor(backend, h, w, 2);
  gRedBlack(backend, fp.devMatrix, fp.b, sor.data(0), sor.data(1), h, w, p, 600, 1.9f);
  EXPECT_LT(maxDifference(sor.dense()), 1e-3 * scale);

  // The same system through host arrays.
  const int P = h * w;
  std::vector<float> m(kMatrixPlanes * P), r(2 * P), init(2 * P, 0.0f), du(P), dv(P);
  backend.download(m.data(), fp.devMatrix, p, w, kMatrixPlanes * h);
  backend.download(r.data(), fp.b, p, w, 2 * h);
  const double ticks = sortimer;
  SORIterations(m.data(), r.data(), du.data(), dv.data(), init.data(), h, w, 1.9f, 600);
  EXPECT_GT(sortimer, ticks);
  std::vector<float> host(du);
  host.insert(host.end(), dv.begin(), dv.end());
  EXPECT_EQ(host, sor.dense());

  std::vector<float> gu(P, 0.0f), gv(P, 0.0f);
  ::testing::internal::CaptureStdout();
  GaussSeidel(m.data(), r.data(), gu.data(), gv.data(), h, w, 1.9f, 600);
  const std::string printed = ::testing::internal::GetCapturedStdout();
  std::vector<float> gs(gu);
  gs.insert(gs.end(), gv.begin(), gv.end());
  EXPECT_LT(maxDifference(gs), 1e-3 * scale);
  EXPECT_EQ(printed.rfind("0 ", 0), 0u) << "one line per sweep, the start first";
}

TEST(RedBlackSor, HostDriversRefuseNullArraysAndEmptyImagesAndKeepTheStartWithoutIterations) {
  std::vector<float> m(kMatrixPlanes * 6, 1.0f), r(12, 1.0f), init = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  std::vector<float> du(6), dv(6);
  SORIterations(m.data(), r.data(), du.data(), dv.data(), init.data(), 2, 3, 1.0f, 0);
  EXPECT_EQ(du, std::vector<float>(init.begin(), init.begin() + 6));
  EXPECT_EQ(dv, std::vector<float>(init.begin() + 6, init.end()));
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(SORIterations(m.data(), r.data(), du.data(), dv.data(), nullptr, 2, 3, 1.0f, 1),
               std::invalid_argument);
  EXPECT_THROW(SORIterations(m.data(), r.data(), du.data(), dv.data(), init.data(), 0, 3, 1.0f, 1),
               std::invalid_argument);
  EXPECT_THROW(GaussSeidel(nullptr, r.data(), du.data(), dv.data(), 2, 3, 1.0f, 1), std::invalid_argument);
  EXPECT_THROW(computeResidual(m.data(), r.data(), du.data(), dv.data(), 2, -1), std::invalid_argument);
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("SORIterations"), std::string::npos) << err;
}

}  // namespace
}  // namespace vemo
