// The linear system of one fixed-point step: robust weights and assembly.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "backends/cpu/cpu_backend.h"
#include "variational/scratch.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::TestImage;
using testing::uniformNoise;

// Planes of one assembly at a given size, filled with random but valid data:
// motion tensors that are sums of outer products (positive semi-definite),
// positive diffusivities, and a match field with some pixels unmatched.
struct AssemblyCase {
  AssemblyCase(Backend& b, int height, int width, unsigned seed)
      : scratch(b, static_cast<std::size_t>(b.pitchFor(width)) * height), u(b, height, width), v(b, height, width),
        geoU(b, height, width), geoV(b, height, width), geoConf(b, height, width), height(height), width(width),
        pitch(b.pitchFor(width)) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> g(-3.0f, 3.0f), pos(0.05f, 2.0f);
    const std::size_t plane = static_cast<std::size_t>(pitch) * height;
    for (float* J : {scratch.fp().ST, scratch.fp().ST2})
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const float a = g(rng), c = g(rng), d = g(rng);
          const std::size_t i = static_cast<std::size_t>(y) * pitch + x;
          const float vals[6] = {a * a, c * c, d * d, a * c, a * d, c * d};
          for (int k = 0; k < 6; ++k) J[i + k * plane] = vals[k];
        }
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const std::size_t i = static_cast<std::size_t>(y) * pitch + x;
        scratch.fp().diffX[i] = pos(rng);
        scratch.fp().diffY[i] = pos(rng);
        scratch.fp().du[i] = 0.1f * g(rng);
        scratch.fp().du[i + plane] = 0.1f * g(rng);
      }
    u.fill(uniformNoise(seed + 1, -2.0f, 2.0f));
    v.fill(uniformNoise(seed + 2, -2.0f, 2.0f));
    geoU.fill(uniformNoise(seed + 3, -2.0f, 2.0f));
    geoV.fill(uniformNoise(seed + 4, -2.0f, 2.0f));
    geoConf.fill([](int x, int y, int) {
      const int k = (x + 3 * y) % 4;
      return k == 0 ? 0.0f : k == 1 ? std::numeric_limits<float>::quiet_NaN() : 0.25f * k;
    });
  }
  void assemble(Backend& b, float alpha = 30.0f, float beta = 300.0f, float gamma = 5.0f) {
    b.assembleSystem(scratch.fp(), u.data(), v.data(), geoU.data(), geoV.data(), geoConf.data(), height, width,
                     pitch, alpha, beta, gamma);
  }
  float A(int k, int x, int y) const {
    return scratch.fp().devMatrix[k * static_cast<std::size_t>(pitch) * height + static_cast<std::size_t>(y) * pitch + x];
  }
  SolverScratch scratch;
  TestImage u, v, geoU, geoV, geoConf;
  int height, width, pitch;
};

// The solver relies on a symmetric matrix whose couplings are minus alpha
// times the shared edge weight and vanish at the border (Neumann). Guards
// against reading the wrong diffusivity entry for a neighbour, a missing
// border test, and an off-diagonal entry that differs between its copies.
TEST(SystemAssembly, SymmetricWithCouplingsOfTheSharedEdgeAndNoneAcrossTheBorder) {
  CpuBackend backend(16, 5);
  const float alpha = 30.0f;
  for (const auto& hw : {std::pair<int, int>{7, 19}, {16, 16}, {1, 1}, {1, 5}}) {
    AssemblyCase c(backend, hw.first, hw.second, 11);
    c.assemble(backend, alpha);
    const FPtmp& fp = c.scratch.fp();
    for (int y = 0; y < c.height; ++y)
      for (int x = 0; x < c.width; ++x) {
        const std::size_t i = static_cast<std::size_t>(y) * c.pitch + x;
        ASSERT_EQ(c.A(kA12Precond, x, y), c.A(kA12Product, x, y));
        const float east = c.A(kEast, x, y), south = c.A(kSouth, x, y);
        if (x + 1 < c.width) {
          ASSERT_EQ(east, -(alpha * fp.diffX[i]));
          ASSERT_EQ(east, c.A(kWest, x + 1, y)) << "asymmetric at " << x << "," << y;
        } else {
          ASSERT_EQ(east, 0.0f);
        }
        if (y + 1 < c.height) {
          ASSERT_EQ(south, -(alpha * fp.diffY[i]));
          ASSERT_EQ(south, c.A(kNorth, x, y + 1)) << "asymmetric at " << x << "," << y;
        } else {
          ASSERT_EQ(south, 0.0f);
        }
        if (x == 0) {
          ASSERT_EQ(c.A(kWest, x, y), 0.0f);
        }
        if (y == 0) {
          ASSERT_EQ(c.A(kNorth, x, y), 0.0f);
        }
      }
  }
}

// The one-pass CPU assembly must give the bits of the four stages run one
// after another.
TEST(SystemAssembly, FusedAssemblyMatchesTheFourStagesInTurn) {
  CpuBackend backend(16, 2);
  AssemblyCase fused(backend, 23, 37, 5), staged(backend, 23, 37, 5);
  fused.assemble(backend);
  backend.Backend::assembleSystem(staged.scratch.fp(), staged.u.data(), staged.v.data(), staged.geoU.data(),
                                  staged.geoV.data(), staged.geoConf.data(), 23, 37, staged.pitch, 30.0f, 300.0f,
                                  5.0f);
  const std::size_t plane = static_cast<std::size_t>(fused.pitch) * 23;
  for (std::size_t k = 0; k < kMatrixPlanes * plane; ++k)
    ASSERT_EQ(fused.scratch.fp().devMatrix[k], staged.scratch.fp().devMatrix[k]) << k;
  for (std::size_t k = 0; k < 2 * plane; ++k) ASSERT_EQ(fused.scratch.fp().b[k], staged.scratch.fp().b[k]) << k;
}

// Robust weights at hand-checkable points. Guards against a missing clamp of
// a slightly negative quadratic form (NaN weight), a match weight that
// forgets beta or the confidence, and NaN or non-positive match weights
// leaking into the system.
TEST(RobustFactors, ClampedFormExactMatchAndUnmatchedPixels) {
  const int plane = 1;
  // J33 = -1e-3 with everything else zero: E < 0 -> clamped to 0 -> 1000.
  float J[6] = {0, 0, -1e-3f, 0, 0, 0};
  const float zero = 0.0f;
  float out = 0.0f;
  DataFactor_kernel(J, &zero, &zero, &out, 0, plane);
  EXPECT_EQ(out, 1000.0f);
  GradientFactor_kernel(J, &zero, &zero, &out, 0, plane, 5.0f);
  EXPECT_EQ(out, 5000.0f);

  const float du = 0.5f, dv = -2.0f, u = 1.5f, v = -0.5f, nan = std::numeric_limits<float>::quiet_NaN();
  float m, mu, mv;
  // Match exactly at u + du: weight beta * c * 1000, sums use u (not u + du).
  const float gu = u + du, gv = v + dv, c = 0.5f, beta = 300.0f;
  MatchFactor_kernel(&u, &v, &du, &dv, &gu, &gv, &c, &m, &mu, &mv, 1, 0, plane, beta);
  EXPECT_FLOAT_EQ(m, beta * c * 1000.0f);
  EXPECT_FLOAT_EQ(mu, m * (u - gu));
  EXPECT_FLOAT_EQ(mv, m * (v - gv));
  for (float conf : {0.0f, -1.0f, nan}) {
    MatchFactor_kernel(&u, &v, &du, &dv, &nan, &nan, &conf, &m, &mu, &mv, 1, 0, plane, beta);
    EXPECT_EQ(m, 0.0f);
    EXPECT_EQ(mu, 0.0f);
    EXPECT_EQ(mv, 0.0f);
  }
}

}  // namespace
}  // namespace vemo
