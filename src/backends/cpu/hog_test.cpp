#include "backends/cpu/hog.h"

#include <gtest/gtest.h>

#include "matching/match_test_util.h"
#include "pixel/hog.h"

namespace vemo {
namespace {

using match_testing::Frame;

// A wrong angle offset, a missing wrap of the angle pi, or unsigned bins all
// put ramps into the wrong bin; the ramp to the left lands in bin 0, whose
// smoothing must wrap round to the last bin.
TEST(HogBins, RampsLandInTheBinOfTheirDirection) {
  EXPECT_EQ(hogOrientationBin(0.0f, 0.0f, kHogBins), -1);   // no gradient, no bin
  EXPECT_EQ(hogOrientationBin(-1.0f, -1e-30f, kHogBins), 0);  // just below -pi + 0: first bin

  // Whole field: three channels of a horizontal ramp add 3 x slope 2 into
  // bin 7, spread 0.239 / 0.522 / 0.239 over bins 6..8; the box mean of a
  // constant field keeps it. A constant image gives nothing at all.
  const int h = 40, w = 37, pitch = 48;
  for (int dir = 0; dir < 4; ++dir) {
    Frame image(h, w, pitch, 3);
    for (int c = 0; c < 3; ++c)
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const int t[4] = {x, -x, y, -y};
          image.at(x, y, c) = 100.0f + 2.0f * t[dir];
        }
    Frame hog(h, w, pitch, kHogBins), energy(h, w, pitch, 1);
    cpu::gComputeHOG(image.ptr(), hog.ptr(), 3, kHogBins, h, w, pitch);
    cpu::computeEnergy(hog.ptr(), energy.ptr(), h, w, pitch, kHogBins);
    const int expected[4] = {7, 0, 11, 3};  // right, left (angle pi wraps), down, up
    const int b = expected[dir];
    const int x = 20, y = 20;  // interior: the 7 x 7 box sees only ramp pixels
    SCOPED_TRACE(dir);
    EXPECT_NEAR(hog.at(x, y, b), 6.0f * kHogBinSmoothing[1], 1e-4f);
    EXPECT_NEAR(hog.at(x, y, (b + 1) % kHogBins), 6.0f * kHogBinSmoothing[2], 1e-4f);
    EXPECT_NEAR(hog.at(x, y, (b + kHogBins - 1) % kHogBins), 6.0f * kHogBinSmoothing[0], 1e-4f);
    EXPECT_NEAR(energy.at(x, y), 6.0f, 1e-4f);
    for (int o = 2; o < kHogBins - 1; ++o) EXPECT_EQ(hog.at(x, y, (b + o) % kHogBins), 0.0f) << o;
    // Padding columns are neither read as data nor written.
    for (int r = 0; r < h * kHogBins; ++r)
      for (int px = w; px < pitch; ++px) ASSERT_TRUE(std::isnan(hog.data[(std::size_t)r * pitch + px]));
  }

  Frame flat(h, w, pitch, 3, 80.0f), hog(h, w, pitch, kHogBins);
  cpu::gComputeHOG(flat.ptr(), hog.ptr(), 3, kHogBins, h, w, pitch);
  for (int b = 0; b < kHogBins; ++b)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) ASSERT_EQ(hog.at(x, y, b), 0.0f);
}

}  // namespace
}  // namespace vemo
