// The energy evaluation: its floors, its terms against hand-computed values,
// the fixed summation order, and its fall over the fixed-point iterations of
// a real pyramid level.
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

namespace vemo {
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

// Identical frames and a constant flow leave only the floors (every summed
// element is sqrt(1e-6) = 0.001, the second weight is unused); a brightness
// change, a flow that leaves the image and ramps of u along x and y each give
// their hand-computed value.
TEST(ObjectiveValue, FloorsAndEachTermAgainstAHandComputedValue) {
  CpuBackend backend;
  const int h = 10, w = 12;  // one 16 x 16 block: the borders replicate the edge
  Case c(backend, h, w);
  c.f1.fill(uniformNoise(1, 0.0f, 255.0f));
  for (int k = 0; k < 3; ++k)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) c.f2.at(x, y, k) = c.f1.at(x, y, k);
  EXPECT_NEAR(c.value(5.0f, 0.0f, 30.0f), 0.003f + 5.0f * 0.003f + 30.0f * 0.001f, 1e-6);
  EXPECT_EQ(c.value(5.0f, 0.0f, 30.0f), c.value(5.0f, 1234.0f, 30.0f));

  // Frame 2 brighter by 2 in every channel, zero flow: the data term is
  // sqrt(4 + 1e-6) per channel, the gradient of the difference is zero.
  c.f1.fill([](int, int, int k) { return 10.0f + k; });
  c.f2.fill([](int, int, int k) { return 12.0f + k; });
  EXPECT_NEAR(c.value(7.0f, 0.0f, 0.0f), 3 * std::sqrt(4.0 + 1e-6) + 7 * 0.003, 1e-5);
  // Every pixel sent out of the image: the difference counts as zero.
  c.u.fill([](int, int, int) { return 100.0f; });
  EXPECT_NEAR(c.value(7.0f, 0.0f, 0.0f), 0.003 + 7 * 0.003, 1e-6);

  // Ramps in u on identical flat frames: central differences 0.1 inside and
  // 0.5 * 0.1 at the first and last column (or row).
  c.f2.fill([](int, int, int k) { return 10.0f + k; });
  c.v.fill([](int, int, int) { return 3.0f; });
  const double inner = std::sqrt(0.01 + 1e-6), edge = std::sqrt(0.0025 + 1e-6);
  c.u.fill([](int x, int, int) { return 0.1f * x; });
  EXPECT_NEAR(c.value(0.0f, 0.0f, 2.0f), 0.003 + 2 * ((w - 2) * inner + 2 * edge) / w, 2e-6);
  c.u.fill([](int, int y, int) { return 0.1f * y; });
  EXPECT_NEAR(c.value(0.0f, 0.0f, 2.0f), 0.003 + 2 * ((h - 2) * inner + 2 * edge) / h, 2e-6);
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
}  // namespace vemo
