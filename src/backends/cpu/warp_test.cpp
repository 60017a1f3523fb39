#include "backends/cpu/warp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "backends/cpu/plane_test_util.h"

using vemo::testing_util::Planes;

namespace {

struct WarpCase {
  int h = 6, w = 9, p = 13, n = 3;
  Planes src{h, w, p, n}, first{h, w, p, n}, out{h, w, p, n}, conf{h, w, p}, u{h, w, p}, v{h, w, p};
  WarpCase() {
    src.fill([](int x, int y, int c) { return 10.0f * x + 100.0f * y + 1000.0f * c; });
    first.fill([](int, int, int c) { return -1.0f - c; });
  }
  void run(int nChan) {
    vemo::cpu::gWarpMotion(out.ptr(), u.ptr(), v.ptr(), src.ptr(), first.ptr(), nChan, conf.ptr(), h, w, p);
  }
};

}  // namespace

TEST(WarpMotion, BilinearInsideAndNoMixingOfChannelPlanesAtTheLastRow) {
  WarpCase k;
  k.u.fill([](int, int, int) { return 0.25f; });
  k.v.fill([](int x, int y, int) { return y == 5 ? 0.0f : 0.5f; });
  k.run(3);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < k.h; ++y)
      for (int x = 0; x < k.w - 1; ++x) {
        const float Y = y == 5 ? 5.0f : y + 0.5f;
        ASSERT_FLOAT_EQ(k.out.at(x, y, c), 10.0f * (x + 0.25f) + 100.0f * Y + 1000.0f * c) << x << "," << y << "," << c;
        ASSERT_EQ(k.conf.at(x, y), 1.0f);
      }
  // The last column lands past width - 1: outside, frame 1's value, mask 0.
  EXPECT_EQ(k.out.at(8, 2, 1), -2.0f);
  EXPECT_EQ(k.conf.at(8, 2), 0.0f);
  EXPECT_TRUE(k.out.paddingIntact());
  EXPECT_TRUE(k.conf.paddingIntact());
}

TEST(WarpMotion, BoundsAreInsideJustPastIsOutsideNaNFlowIsOutsideAndNoChannelIsRefused) {
  WarpCase k;
  k.u.at(0, 0) = 8.0f;      // lands exactly on column width - 1
  k.v.at(3, 0) = 5.0f;      // exactly on row height - 1
  k.u.at(2, 2) = -2.0001f;  // just left of column 0
  k.v.at(4, 1) = 4.0001f;   // just below the last row
  k.u.at(5, 3) = NAN;
  k.run(3);
  EXPECT_EQ(k.conf.at(0, 0), 1.0f);
  EXPECT_EQ(k.out.at(0, 0, 2), 2080.0f);
  EXPECT_EQ(k.conf.at(3, 0), 1.0f);
  EXPECT_EQ(k.out.at(3, 0, 0), 530.0f);
  EXPECT_EQ(k.out.at(3, 0, 2), 2530.0f);
  for (auto [x, y] : {std::pair{2, 2}, std::pair{4, 1}, std::pair{5, 3}}) {
    EXPECT_EQ(k.conf.at(x, y), 0.0f) << x << "," << y;
    EXPECT_EQ(k.out.at(x, y, 0), -1.0f);
    EXPECT_EQ(k.out.at(x, y, 2), -3.0f);
  }
  EXPECT_EQ(k.out.at(1, 1, 1), 1110.0f);  // zero flow: frame 2 itself
  EXPECT_THROW(k.run(0), std::invalid_argument);  // no channel to warp
}
