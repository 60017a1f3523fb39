#include "backends/cpu/confidence.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>

#include "matching/match_test_util.h"
#include "pixel/confidence.h"

namespace vemo {
namespace {

using match_testing::Frame;

// The cornerness must vanish where there is no structure or only one
// gradient direction and be clearly positive at a corner; an eigenvalue
// formula with the wrong sign or a magnitude taken after smoothing fails.
TEST(Cornerness, FlatIsZeroEdgeIsWeakCornerIsStrong) {
  const int h = 64, w = 70, pitch = 80;
  Frame flat(h, w, pitch, 3, 120.0f), conf(h, w, pitch, 1);
  cpu::gComputeConfidence(flat.ptr(), conf.ptr(), h, w, pitch, 3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ASSERT_EQ(conf.at(x, y), 0.0f) << x << "," << y;

  Frame edge(h, w, pitch, 3), corner(h, w, pitch, 3);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        edge.at(x, y, c) = x < 35 ? 50.0f : 200.0f;
        corner.at(x, y, c) = (x < 35 && y < 32) ? 200.0f : 50.0f;
      }
  Frame edgeConf(h, w, pitch, 1), cornerConf(h, w, pitch, 1);
  cpu::gComputeConfidence(edge.ptr(), edgeConf.ptr(), h, w, pitch, 3);
  cpu::gComputeConfidence(corner.ptr(), cornerConf.ptr(), h, w, pitch, 3);
  const float atCorner = cornerConf.at(34, 31);
  EXPECT_GT(atCorner, 100.0f);
  // Along the straight part of the corner's edges and along the pure edge the
  // smaller eigenvalue is (nearly) zero.
  EXPECT_LT(std::fabs(edgeConf.at(34, 32)), 1e-3f * atCorner);
  EXPECT_LT(std::fabs(cornerConf.at(34, 5)), 0.05f * atCorner);
  // Away from any gradient the weight by the magnitude makes it exactly 0.
  EXPECT_EQ(cornerConf.at(10, 50), 0.0f);
  EXPECT_NEAR(cornernessFromTensor(4.0f, 0.0f, 1.0f, 2.0f), 2.0f, 1e-6f);  // min eigenvalue 1, weight 2
}

// The mean confidence comes from a sum in a fixed order; a sum that drops
// the columns beyond the first 256 or the last rows, or whose value changes
// with the thread count, is caught here.
TEST(ImageSum, CoversEveryPixelInAFixedOrder) {
  const int h = 37, w = 600, pitch = 608;
  Frame image(h, w, pitch, 1);
  double exact = 0.0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      image.at(x, y) = (float)((x * 7 + y * 13) % 101) * 0.37f;
      exact += image.at(x, y);
    }
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const float one = cpu::gCompute2DSum(image.ptr(), h, w, pitch);
  omp_set_num_threads(2);
  const float two = cpu::gCompute2DSum(image.ptr(), h, w, pitch);
  omp_set_num_threads(threads);
  EXPECT_EQ(one, two);
  EXPECT_NEAR(one, exact, 1e-5 * exact);

  // The tree fold adds partial sums pairwise at halving distances.
  float partial[kSumThreads] = {};
  partial[0] = 1.0f;
  partial[255] = 2.0f;
  partial[128] = 4.0f;
  EXPECT_EQ(treeSum256(partial), 7.0f);
}

// Only matches whose backward search returns within one pixel are kept,
// weighted by the relative margin over the runner-up.
TEST(ConsistencyCheck, KeepsRoundTripsAndWeighsTheirMargin) {
  EXPECT_NEAR(matchWeight(10.0f, 30.0f), 2.0f, 1e-6f);
  EXPECT_NEAR(matchWeight(0.0f, 5.0f), 5e6f, 1.0f);
  EXPECT_EQ(matchWeight(7.0f, 7.0f), 0.0f);
  EXPECT_EQ(matchWeight(7.0f, 1e9f), 1.0f);  // a single admissible candidate
  EXPECT_EQ(matchWeight(1e9f, 1e9f), 0.0f);  // no candidate at all

  const int h = 40, w = 40, pitch = 48;
  // Points: exact round trip, one pixel off diagonally, two pixels off in x,
  // two off in y, never matched (everything 0).
  const int mx[5] = {12, 16, 20, 24, 28}, my[5] = {12, 12, 16, 16, 20};
  const int fx[5] = {15, 16, 30, 24, 0}, fy[5] = {10, 20, 16, 13, 0};
  const int bx[5] = {12, 17, 22, 24, 0}, by[5] = {12, 11, 16, 18, 0};
  const float d1[5] = {10.0f, 0.0f, 1.0f, 1.0f, 1e9f}, d2[5] = {30.0f, 1e9f, 2.0f, 2.0f, 1e9f};
  Frame conf(h, w, pitch, 1), u(h, w, pitch, 1), v(h, w, pitch, 1);
  cpu::consistencyCheck(mx, my, fx, fy, bx, by, d1, d2, 5, conf.ptr(), u.ptr(), v.ptr(), h, w, pitch);
  EXPECT_NEAR(conf.at(12, 12), 2.0f, 1e-6f);
  EXPECT_EQ(u.at(12, 12), 3.0f);
  EXPECT_EQ(v.at(12, 12), -2.0f);
  EXPECT_EQ(conf.at(16, 12), 1.0f);
  EXPECT_EQ(u.at(16, 12), 0.0f);
  EXPECT_EQ(v.at(16, 12), 8.0f);
  for (int i = 2; i < 5; ++i) {
    EXPECT_EQ(conf.at(mx[i], my[i]), 0.0f) << i;
    EXPECT_EQ(u.at(mx[i], my[i]), 0.0f) << i;
    EXPECT_EQ(v.at(mx[i], my[i]), 0.0f) << i;
  }

  // A grid point outside the frame would write out of bounds: refused.
  const int badX[1] = {40}, badY[1] = {12};
  EXPECT_THROW(cpu::consistencyCheck(badX, badY, fx, fy, bx, by, d1, d2, 1, conf.ptr(), u.ptr(), v.ptr(), h, w,
                                     pitch),
               std::invalid_argument);
}

}  // namespace
}  // namespace vemo
