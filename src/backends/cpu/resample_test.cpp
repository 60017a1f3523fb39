#include "backends/cpu/resample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "backends/cpu/plane_test_util.h"
#include "pixel/resample.h"

using vemo::testing_util::Planes;

// The same size is the identity; a full-frame step of the default pyramid
// gives the exact footprint means of a ramp (pixel i holds i over
// [i, i + 1)), up to the single-precision footprint bounds (about 1e-4
// relative near the far edge).
TEST(AreaDownsample, SameSizeIsIdentityAndFootprintsAreExactMeans) {
  Planes in(13, 11, 18), out(13, 11, 18);
  in.fillRandom(3);
  vemo::cpu::downsample(in.ptr(), 13, 11, 18, out.ptr(), 13, 11, 18, nullptr);
  for (int y = 0; y < 13; ++y)
    for (int x = 0; x < 11; ++x) ASSERT_EQ(out.at(x, y), in.at(x, y));
  EXPECT_TRUE(out.paddingIntact());

  auto meanFloor = [](double t0, double t1) {
    double s = 0;
    for (int i = (int)t0; i < t1; ++i) s += i * (std::min(t1, i + 1.0) - std::max(t0, (double)i));
    return s / (t1 - t0);
  };
  Planes big(480, 640, 647), small(456, 608, 611);
  big.fill([](int x, int y, int) { return (float)x + 0.5f * (float)y; });
  vemo::cpu::downsample(big.ptr(), 480, 640, 647, small.ptr(), 456, 608, 611, nullptr);
  const double fx = 640.0 / 608.0, fy = 480.0 / 456.0;
  for (int y = 0; y < 456; y += 5)
    for (int x = 0; x < 608; x += 7) {
      const double expect = meanFloor(fx * x, fx * (x + 1)) + 0.5 * meanFloor(fy * y, fy * (y + 1));
      ASSERT_NEAR(small.at(x, y), expect, 1e-4 * (1 + expect)) << x << "," << y;
    }
  EXPECT_TRUE(small.paddingIntact());
}

TEST(WeightedDownsample, EmptyFootprintsGiveNaNAndOnlyPositiveWeightsCount) {
  Planes val(4, 4, 6), conf(4, 4, 6), out(2, 2, 3);
  val.fill([](int x, int y, int) { return (float)(1 + x + 4 * y); });
  // Top-left block: no positive weight (zeros and a negative one).
  conf.at(1, 1) = -2.0f;
  // Top-right block: one cell of weight 3 -> exactly that value.
  conf.at(3, 0) = 3.0f;
  // Bottom-left: weights 1 and 3 -> (9 * 1 + 14 * 3) / 4.
  conf.at(0, 2) = 1.0f;
  conf.at(1, 3) = 3.0f;
  // Bottom-right: all weight 2 -> plain mean.
  for (int y = 2; y < 4; ++y)
    for (int x = 2; x < 4; ++x) conf.at(x, y) = 2.0f;
  vemo::cpu::downsample(val.ptr(), 4, 4, 6, out.ptr(), 2, 2, 3, conf.ptr());
  EXPECT_TRUE(std::isnan(out.at(0, 0)));
  EXPECT_EQ(out.at(1, 0), 4.0f);
  EXPECT_FLOAT_EQ(out.at(0, 1), (9.0f + 14.0f * 3.0f) / 4.0f);
  EXPECT_FLOAT_EQ(out.at(1, 1), (11.0f + 12.0f + 15.0f + 16.0f) / 4.0f);
  // The weight plane reduced by itself: sum(c^2) / sum(c).
  vemo::cpu::downsample(conf.ptr(), 4, 4, 6, out.ptr(), 2, 2, 3, conf.ptr());
  EXPECT_TRUE(std::isnan(out.at(0, 0)));
  EXPECT_FLOAT_EQ(out.at(0, 1), (1.0f + 9.0f) / 4.0f);
  EXPECT_TRUE(out.paddingIntact());
}

TEST(Interpolate, UnitScaleIsIdentityAndEnlargementClampsAtTheEdges) {
  Planes src(9, 7, 12), out(9, 7, 10);
  src.fillRandom(8);
  vemo::cpu::gInterpolate(out.ptr(), 9, 7, 10, src.ptr(), 9, 7, 12, 1.0f);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 7; ++x) ASSERT_EQ(out.at(x, y), src.at(x, y)) << "padding mixed in at " << x << "," << y;
  EXPECT_TRUE(out.paddingIntact());
  // Enlarging a ramp by 2 samples it at half-pixel positions, exactly, and
  // clamps past the last source row and column.
  Planes ramp(4, 5, 9), big(9, 11, 13);
  ramp.fill([](int x, int y, int) { return 2.0f * x + 3.0f * y; });
  vemo::cpu::gInterpolate(big.ptr(), 9, 11, 13, ramp.ptr(), 4, 5, 9, 2.0f);
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 11; ++x) {
      const float X = std::min(x / 2.0f, 4.0f), Y = std::min(y / 2.0f, 3.0f);
      ASSERT_EQ(big.at(x, y), 2.0f * X + 3.0f * Y) << x << "," << y;
    }
  EXPECT_TRUE(big.paddingIntact());
}

// The device kernels call the per-pixel functions directly; the CPU loops
// share spans between pixels and sum several footprints side by side (three
// planes in one pass: the match field, or colour channels). All must give the same bits.
TEST(AreaDownsample, CpuLoopMatchesThePerPixelFunctionsBitForBit) {
  const int sizes[][4] = {{480, 640, 456, 608}, {83, 97, 79, 93}, {200, 300, 37, 61}, {17, 17, 5, 3}};
  for (auto& s : sizes) {
    Planes in(s[0], s[1], s[1] + 3), in2(s[0], s[1], s[1] + 3), conf(s[0], s[1], s[1] + 3);
    Planes out(s[2], s[3], s[3] + 5), wout(s[2], s[3], s[3] + 5), f0(s[2], s[3], s[3] + 5), f1(s[2], s[3], s[3] + 5),
        f2(s[2], s[3], s[3] + 5);
    in.fillRandom(41);
    in2.fillRandom(43);
    conf.fillRandom(42, -0.5f, 1.0f);
    vemo::cpu::downsample(in.ptr(), s[0], s[1], in.pitch, out.ptr(), s[2], s[3], out.pitch, nullptr);
    vemo::cpu::downsample(in.ptr(), s[0], s[1], in.pitch, wout.ptr(), s[2], s[3], wout.pitch, conf.ptr());
    const float* const field[3] = {in.ptr(), in2.ptr(), conf.ptr()};
    float* const fused[3] = {f0.ptr(), f1.ptr(), f2.ptr()};
    vemo::cpu::downsample3(field, fused, s[0], s[1], in.pitch, s[2], s[3], f0.pitch, conf.ptr());
    for (int y = 0; y < s[2]; ++y)
      for (int x = 0; x < s[3]; ++x) {
        const float p = vemo::downsampleAt(in.ptr(), s[0], s[1], in.pitch, s[2], s[3], x, y);
        const float w = vemo::downsampleWeightedAt(in.ptr(), s[0], s[1], in.pitch, s[2], s[3], conf.ptr(), x, y);
        const float w2 = vemo::downsampleWeightedAt(in2.ptr(), s[0], s[1], in.pitch, s[2], s[3], conf.ptr(), x, y);
        const float wc = vemo::downsampleWeightedAt(conf.ptr(), s[0], s[1], in.pitch, s[2], s[3], conf.ptr(), x, y);
        ASSERT_TRUE(vemo::testing_util::sameBits(out.at(x, y), p)) << x << "," << y;
        ASSERT_TRUE(vemo::testing_util::sameBits(wout.at(x, y), w)) << x << "," << y;
        ASSERT_TRUE(vemo::testing_util::sameBits(f0.at(x, y), w)) << x << "," << y;
        ASSERT_TRUE(vemo::testing_util::sameBits(f1.at(x, y), w2)) << x << "," << y;
        ASSERT_TRUE(vemo::testing_util::sameBits(f2.at(x, y), wc)) << x << "," << y;
      }
    // The colour channels: three plain averages in one pass.
    vemo::cpu::downsample3(field, fused, s[0], s[1], in.pitch, s[2], s[3], f0.pitch, nullptr);
    for (int y = 0; y < s[2]; ++y)
      for (int x = 0; x < s[3]; ++x)
        for (int k = 0; k < 3; ++k)
          ASSERT_TRUE(vemo::testing_util::sameBits(
              fused[k][y * f0.pitch + x], vemo::downsampleAt(field[k], s[0], s[1], in.pitch, s[2], s[3], x, y)))
              << k << " " << x << "," << y;
  }
}
