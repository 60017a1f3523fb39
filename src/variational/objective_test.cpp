// The energy evaluation: its floors, each term against a hand-computed
// value, the fixed summation order, and its fall over the fixed-point
// iterations of a real pyramid level.
#include "variational/objective.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "variational/nonlinear_iteration.h"
#include "variational/real_level_test_util.h"
#include "support/solver_fixtures.h"

namespace flowcore {
namespace {

using testing::RealLevel;
using testing::TestImage;
using testing::uniformNoise;

// Frames and flow of one evaluation.
struct Case {
  Case(Backend& b, int height, int width)
      : f1(b, height, width, 3), f2(b, height, width, 3), u(b, height, width), v(b, height, width), b(b) {}
  float value(float first, float second, float third) {
    return gObjectiveValue(b, f1.data(), f2.data(), u.data(), v.data(), f1.height, f1.width, f1.pitch, first, second,
                           third);
  }
  TestImage f1, f2, u, v;
  Backend& b;
};

TEST(ObjectiveValue, FloorsOfIdenticalFramesAndConstantFlowAndTheUnusedSecondWeight) {
  CpuBackend backend(16, 5);
  Case c(backend, 29, 41);
  c.f1.fill(uniformNoise(1, 0.0f, 255.0f));
  for (int k = 0; k < 3; ++k)
    for (int y = 0; y < 29; ++y)
      for (int x = 0; x < 41; ++x) c.f2.at(x, y, k) = c.f1.at(x, y, k);
  // Every summed element is sqrt(1e-6) = 0.001.
  EXPECT_NEAR(c.value(0.0f, 0.0f, 0.0f), 0.003f, 1e-7);
  EXPECT_NEAR(c.value(5.0f, 0.0f, 30.0f), 0.003f + 5.0f * 0.003f + 30.0f * 0.001f, 1e-6);
  EXPECT_EQ(c.value(5.0f, 0.0f, 30.0f), c.value(5.0f, 1234.0f, 30.0f));

  // A constant flow on textured frames: the smoothness weight adds exactly
  // its floor per pixel, whatever the data terms are.
  c.f1.fill(uniformNoise(3, 0.0f, 2.0f));
  c.f2.fill(uniformNoise(2, 0.0f, 2.0f));
  c.u.fill([](int, int, int) { return 1.5f; });
  c.v.fill([](int, int, int) { return -0.5f; });
  const float without = c.value(5.0f, 0.0f, 0.0f);
  EXPECT_GT(without, 0.1f);
  EXPECT_NEAR(c.value(5.0f, 0.0f, 30.0f) - without, 30.0f * 0.001f, 2e-6);
}

TEST(ObjectiveValue, EachTermAgainstAHandComputedValue) {
  CpuBackend backend;
  const int h = 10, w = 12;  // one 16 x 16 block: the borders replicate the edge
  Case c(backend, h, w);
  // Frame 2 brighter by 2 in every channel, zero flow: the data term is
  // sqrt(4 + 1e-6) per channel, the gradient of the difference is zero.
  c.f1.fill([](int, int, int k) { return 10.0f + k; });
  c.f2.fill([](int, int, int k) { return 12.0f + k; });
  const double data = 3 * std::sqrt(4.0 + 1e-6);
  EXPECT_NEAR(c.value(7.0f, 0.0f, 0.0f), data + 7 * 0.003, 1e-5);

  // A flow that sends every pixel out of the image: the difference counts
  // as zero there, leaving the floors.
  c.u.fill([](int, int, int) { return 100.0f; });
  EXPECT_NEAR(c.value(7.0f, 0.0f, 0.0f), 0.003 + 7 * 0.003, 1e-6);

  // A horizontal ramp in u, constant v, identical flat frames: central
  // differences 0.1 inside and 0.5 * 0.1 at the first and last column.
  c.f2.fill([](int, int, int k) { return 10.0f + k; });
  c.u.fill([](int x, int, int) { return 0.1f * x; });
  c.v.fill([](int, int, int) { return 3.0f; });
  const double inner = std::sqrt(0.01 + 1e-6), edge = std::sqrt(0.0025 + 1e-6);
  const double smooth = ((w - 2) * inner + 2 * edge) / w;
  EXPECT_NEAR(c.value(0.0f, 0.0f, 2.0f), 0.003 + 2 * smooth, 2e-6);
  // The same ramp along y lands in the vertical derivative.
  c.u.fill([](int, int y, int) { return 0.1f * y; });
  const double smoothY = ((h - 2) * inner + 2 * edge) / h;
  EXPECT_NEAR(c.value(0.0f, 0.0f, 2.0f), 0.003 + 2 * smoothY, 2e-6);

  // A vertical ramp in the frames: the gradient term sees the derivative of
  // the difference, including across the boundary between channel planes.
  c.u.fill([](int, int, int) { return 0.0f; });
  c.v.fill([](int, int, int) { return 0.0f; });
  c.f2.fill([](int, int y, int k) { return 10.0f + k + 2.0f * y; });
  const float withGradient = c.value(1.0f, 0.0f, 0.0f), withoutGradient = c.value(0.0f, 0.0f, 0.0f);
  double expectGradient = 0.0;
  for (int k = 0; k < 3; ++k)
    for (int y = 0; y < h; ++y) {
      // D(row) = 2 y in plane k; the stacked rows run on into the next plane.
      auto D = [&](int kk, int yy) { return 2.0 * yy + 0.0 * kk; };
      const int up = k * h + y - 1, down = k * h + y + 1;
      const double dUp = up < 0 ? D(0, 0) : D(up / h, up % h);
      const double dDown = down >= 3 * h ? D(2, h - 1) : D(down / h, down % h);
      expectGradient += w * std::sqrt(0.25 * (dDown - dUp) * (dDown - dUp) + 1e-6);
    }
  EXPECT_NEAR(withGradient - withoutGradient, expectGradient / (w * h), 1e-4);
}

TEST(ObjectiveValue, SumsInSinglePrecisionInRowOrderAndSkipsThePadding) {
  CpuBackend backend(16, 3);
  TestImage img(backend, 3, 5);
  // 2^24 absorbs every following 1 in single precision; the padding holds
  // NaN, which must not be read.
  img.fill([](int x, int y, int) { return x == 0 && y == 0 ? 16777216.0f : 1.0f; });
  for (int y = 0; y < 3; ++y)
    for (int x = 5; x < img.pitch; ++x) img.at(x, y) = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(findSum(backend, img.data(), 3, 5, img.pitch), 16777216.0f);
  img.at(0, 0) = 1.0f;
  img.at(4, 2) = 16777216.0f;
  EXPECT_EQ(findSum(backend, img.data(), 3, 5, img.pitch), 16777216.0f + 14.0f);
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(findSum(backend, img.data(), 3, 5, 4), std::invalid_argument);
  ::testing::internal::GetCapturedStderr();
}

// The energy after k fixed-point iterations (k = 0 .. 5) of the first
// level of a real pair, flow starting from zero, no match term.
TEST(ObjectiveValue, FallsOverTheFixedPointIterationsOfARealLevel) {
  CpuBackend backend;
  const int h = 72, w = 96;
  const float alpha = 30.0f, gamma = 5.0f;
  RealLevel level(backend, h, w);
  if (!level.load("chairs_0")) GTEST_SKIP() << "no real frames";
  std::vector<float> energy;
  std::string figures;
  for (int k = 0; k <= 5; ++k) {
    backend.clear(level.u.data(), level.plane());
    backend.clear(level.v.data(), level.plane());
    ::testing::internal::CaptureStdout();
    gNonLinearIteration(backend, level.frame1.data(), level.frame2.data(), level.conf.data(), level.zero.data(),
                        level.zero.data(), level.zero.data(), 1, level.u.data(), level.v.data(), h, w, level.pitch, 3,
                        alpha, 300.0f, gamma, k, 10, level.scratch.cg(), level.scratch.fp());
    ::testing::internal::GetCapturedStdout();
    energy.push_back(gObjectiveValue(backend, level.frame1.data(), level.frame2.data(), level.u.data(),
                                     level.v.data(), h, w, level.pitch, gamma, 0.0f, alpha));
    figures += (k ? " " : "") + std::to_string(energy.back());
  }
  RecordProperty("energy_by_iteration", figures);
  for (int k = 1; k <= 5; ++k) EXPECT_LT(energy[k], energy[k - 1]) << figures;
  EXPECT_LT(energy[5], 0.95f * energy[0]) << figures;
}

}  // namespace
}  // namespace flowcore
