#include "variational/diffusivity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "pixel/diffusivity.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::TestImage;

struct DiffusivityRun {
  DiffusivityRun(Backend& b, int height, int width)
      : u(b, height, width), v(b, height, width), du(b, height, width, 2), diffX(b, height, width),
        diffY(b, height, width), sum(b, height, width), derivative(b, height, width) {}
  void run(Backend& b) {
    gDiffusivity(b, u.data(), v.data(), du.data(0), du.data(1), diffX.data(), diffY.data(), u.height, u.width,
                 u.pitch, sum.data(), derivative.data());
  }
  TestImage u, v, du, diffX, diffY, sum, derivative;
};

// A constant flow has no gradient: every edge weight is 1 / sqrt(1e-6), on
// thin images too. u + du = 2x, whether carried by u or by du: horizontal
// edges see the forward difference 2; vertical edges see the central
// x-derivative (2 inside, 1 at the replicated left and right borders).
// Guards against a wrong epsilon, swapped derivative directions, a wrong
// midpoint mean, or weights depending on u instead of u + du.
TEST(Diffusivity, ConstantAndRampFlowsGiveTheirEdgeWeights) {
  CpuBackend backend(16, 3);
  for (const auto& hw : {std::pair<int, int>{9, 21}, {1, 7}, {1, 1}}) {
    DiffusivityRun d(backend, hw.first, hw.second);
    d.u.fill([](int, int, int) { return 3.0f; });
    d.du.fill([](int, int, int k) { return k == 0 ? 0.5f : -2.0f; });
    d.diffX.fill([](int, int, int) { return 77.0f; });  // overwritten whole
    d.run(backend);
    for (float w : d.diffX.dense()) ASSERT_EQ(w, 1000.0f) << hw.first << "x" << hw.second;
    for (float w : d.diffY.dense()) ASSERT_EQ(w, 1000.0f) << hw.first << "x" << hw.second;
    EXPECT_TRUE(d.diffX.paddingIsZero());
  }

  const int h = 5, w = 20;
  DiffusivityRun inIncrement(backend, h, w), inFlow(backend, h, w);
  inIncrement.du.fill([](int x, int, int k) { return k == 0 ? 2.0f * x : 0.0f; });
  inFlow.u.fill([](int x, int, int) { return 2.0f * x; });
  inIncrement.run(backend);
  inFlow.run(backend);
  EXPECT_EQ(inIncrement.diffX.dense(), inFlow.diffX.dense());
  EXPECT_EQ(inIncrement.diffY.dense(), inFlow.diffY.dense());
  const float half = static_cast<float>(1.0 / std::sqrt(4.0 + 1e-6));
  const float one = static_cast<float>(1.0 / std::sqrt(1.0 + 1e-6));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w - 1; ++x) EXPECT_EQ(inFlow.diffX.at(x, y), half) << x << "," << y;
    for (int x = 0; x < w && y < h - 1; ++x)
      EXPECT_EQ(inFlow.diffY.at(x, y), (x == 0 || x == w - 1) ? one : half) << x << "," << y;
  }
}

// The fused rule that the CUDA backend runs as one kernel (and inside
// one-block levels), and the CPU backend's single pass, give every float of
// the composed passes, padding included, on random flows: widths around the
// 16-wide tiles whose border rule it reproduces, and rows of one or two
// pixels; with the method's epsilon and with a larger one (some presets),
// which must reach every path.
TEST(Diffusivity, TheFusedPixelRuleIsTheComposedPassesBitForBit) {
  CpuBackend backend(16, 3);
  const int sizes[][2] = {{19, 5}, {19, 16}, {19, 17}, {7, 33}, {4, 70}, {1, 9}, {2, 40}, {40, 1}, {150, 120}};
  for (const double epsilon : {kRobustEpsilon, 1e-3})
  for (const auto& hw : sizes) {
    const int h = hw[0], w = hw[1];
    DiffusivityRun d(backend, h, w);
    d.u.fill(testing::uniformNoise(1, -3.0f, 3.0f));
    d.v.fill(testing::uniformNoise(2, -3.0f, 3.0f));
    d.du.fill(testing::uniformNoise(3, -0.5f, 0.5f));
    if (epsilon == kRobustEpsilon) {
      d.run(backend);
    } else {
      const std::vector<float> method = (d.run(backend), d.diffX.dense());
      backend.diffusivity(d.u.data(), d.v.data(), d.du.data(0), d.du.data(1), d.diffX.data(), d.diffY.data(), h, w,
                          d.u.pitch, d.sum.data(), d.derivative.data(), epsilon);
      EXPECT_NE(d.diffX.dense(), method) << "the epsilon did not reach the pass";
    }
    TestImage composedX(backend, h, w), composedY(backend, h, w);
    backend.Backend::diffusivity(d.u.data(), d.v.data(), d.du.data(0), d.du.data(1), composedX.data(),
                                 composedY.data(), h, w, d.u.pitch, d.sum.data(), d.derivative.data(), epsilon);
    EXPECT_EQ(std::memcmp(composedX.data(), d.diffX.data(), composedX.plane() * sizeof(float)), 0) << h << "x" << w;
    EXPECT_EQ(std::memcmp(composedY.data(), d.diffY.data(), composedY.plane() * sizeof(float)), 0) << h << "x" << w;
    TestImage fusedX(backend, h, w), fusedY(backend, h, w);
    fusedX.fill([](int, int, int) { return 7.0f; });
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < d.u.pitch; ++x)
        diffusivityAt(d.u.data(), d.v.data(), d.du.data(0), d.du.data(1), fusedX.data(), fusedY.data(), x, y, h, w,
                      d.u.pitch, epsilon);
    EXPECT_EQ(std::memcmp(fusedX.data(), d.diffX.data(), fusedX.plane() * sizeof(float)), 0) << h << "x" << w;
    EXPECT_EQ(std::memcmp(fusedY.data(), d.diffY.data(), fusedY.plane() * sizeof(float)), 0) << h << "x" << w;
  }
}

}  // namespace
}  // namespace vemo
