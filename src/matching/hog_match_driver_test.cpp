#include "matching/hog_match_driver.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "backends/cpu/cpu_matching_stages.h"
#include "matching/match_test_util.h"

namespace vemo {
namespace {

using match_testing::Frame;

struct MatchPlanes {
  Frame u, v, conf;
  std::string printed;
  MatchPlanes(int h, int w, int pitch)
      : u(h, w, pitch, 1, 123.0f), v(h, w, pitch, 1, 123.0f), conf(h, w, pitch, 1, 123.0f) {}
};

// Runs the driver on host frames (the CPU backend's memory is host memory).
MatchPlanes runDriver(const Frame& f1, const Frame& f2, int channels) {
  CpuBackend backend;
  CpuMatchingStages stages;
  MatchPlanes out(f1.height, f1.width, f1.pitch);
  ::testing::internal::CaptureStdout();
  gCreateAndMatchHOG(backend, stages, f1.ptr(), f2.ptr(), out.u.ptr(), out.v.ptr(), out.conf.ptr(), f1.height,
                     f1.width, f1.pitch, channels);
  out.printed = ::testing::internal::GetCapturedStdout();
  return out;
}

std::string firstLine(const std::string& s) { return s.substr(0, s.find('\n') + 1); }

void expectAllZero(const MatchPlanes& m) {
  for (int y = 0; y < m.u.height; ++y)
    for (int x = 0; x < m.u.width; ++x) {
      ASSERT_EQ(m.u.at(x, y), 0.0f);
      ASSERT_EQ(m.v.at(x, y), 0.0f);
      ASSERT_EQ(m.conf.at(x, y), 0.0f);
    }
}

// The grid line and the guards for frames that cannot be matched: the
// planes must be cleared (never left with old contents) and nothing may be
// read outside the frame.
TEST(MatchDriver, GridLineAndFramesWithoutGridPoints) {
  // 640 x 480: 154 x 114 points. One channel: no colour test possible, so no
  // matches, but the grid line is printed first.
  {
    const Frame f(480, 640, 640, 1, 10.0f);
    const MatchPlanes m = runDriver(f, f, 1);
    EXPECT_EQ(firstLine(m.printed), "154 114 640 480\n");
    EXPECT_NE(m.printed.find("HOG creation = "), std::string::npos);
    EXPECT_NE(m.printed.find("HOG match = "), std::string::npos);
    expectAllZero(m);
  }
  // 25 x 25: one grid point (12, 12) whose search has the single candidate
  // (12, 12), hence weight 1 and no displacement. A corner at the point makes
  // it pass the cornerness test.
  Frame corner(25, 25, 32, 3, 40.0f);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < 13; ++y)
      for (int x = 0; x < 13; ++x) corner.at(x, y, c) = 200.0f;
  const MatchPlanes m = runDriver(corner, corner, 3);
  EXPECT_EQ(firstLine(m.printed), "1 1 25 25\n");
  EXPECT_EQ(m.conf.at(12, 12), 1.0f);
  for (int y = 0; y < 25; ++y)
    for (int x = 0; x < 25; ++x) {
      ASSERT_EQ(m.u.at(x, y), 0.0f);
      ASSERT_EQ(m.v.at(x, y), 0.0f);
      if (x != 12 || y != 12) {
        ASSERT_EQ(m.conf.at(x, y), 0.0f);
      }
    }
}

// A frame pair whose content moved by (9, 6): accepted matches sit on the
// grid and, away from the border where content left the frame, carry that
// displacement. The result must not depend on the thread count.
TEST(MatchDriver, RecoversAGlobalShiftIdenticallyOnOneAndTwoThreads) {
  const int h = 120, w = 160, pitch = 176;
  const Frame f1 = match_testing::texturedFrame(h, w, pitch, 5);
  const Frame f2 = match_testing::texturedFrame(h, w, pitch, 5, 9, 6);
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const MatchPlanes one = runDriver(f1, f2, 3);
  omp_set_num_threads(2);
  const MatchPlanes two = runDriver(f1, f2, 3);
  omp_set_num_threads(threads);
  EXPECT_EQ(firstLine(one.printed), "34 24 160 120\n");

  int accepted = 0, right = 0;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      ASSERT_EQ(one.u.at(x, y), two.u.at(x, y));
      ASSERT_EQ(one.v.at(x, y), two.v.at(x, y));
      const float a = one.conf.at(x, y), b = two.conf.at(x, y);
      ASSERT_EQ(std::memcmp(&a, &b, sizeof(float)), 0);
      const bool onGrid = x >= 12 && y >= 12 && x < w - 12 && y < h - 12 && x % 4 == 0 && y % 4 == 0;
      if (one.conf.at(x, y) != 0.0f) {
        ASSERT_TRUE(onGrid) << x << "," << y;
      }
      if (!onGrid) {
        ASSERT_EQ(one.u.at(x, y), 0.0f);
        continue;
      }
      if (one.conf.at(x, y) <= 0.0f || x + 9 >= w - 12 || y + 6 >= h - 12) continue;
      ++accepted;
      if (one.u.at(x, y) == 9.0f && one.v.at(x, y) == 6.0f) ++right;
    }
  EXPECT_GT(accepted, 200);
  EXPECT_GE(right, accepted * 95 / 100);
}

}  // namespace
}  // namespace vemo
