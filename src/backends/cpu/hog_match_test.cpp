#include "backends/cpu/hog_match.h"

#include <gtest/gtest.h>

#include <random>
#include <utility>
#include <vector>

#include "backends/cpu/confidence.h"
#include "backends/cpu/hog.h"
#include "matching/match_test_util.h"
#include "pixel/confidence.h"
#include "pixel/hog.h"
#include "pixel/hog_match.h"

namespace vemo {
namespace {

using match_testing::Frame;

struct SearchResult {
  int x = -7, y = -7;
  float dist = -7.0f, dist2 = -7.0f;  // sentinels: "not written"
};

SearchResult searchOne(const Frame& im1, const Frame& im2, const Frame& hog1, const Frame& hog2, const Frame& corner,
                       int checkCorner, const Frame& e1, const Frame& e2, float average, int ax, int ay) {
  SearchResult r;
  cpu::HOGMatch(im1.ptr(), im2.ptr(), hog1.ptr(), hog2.ptr(), corner.ptr(), checkCorner, e1.ptr(), e2.ptr(), average,
                &r.x, &r.y, &r.dist, &r.dist2, &ax, &ay, 1, im1.height, im1.width, im1.pitch);
  return r;
}

// Only a handful of candidates pass the energy test (all others have 1000
// times the query's energy), so their distances and ties are set by hand.
// Guards the tie rule (leftmost column, then topmost row), the second-best
// rule for tied columns, and the inclusive limits of both pre-filters.
TEST(HogMatch, TiesAndPrefilterLimitsFollowTheWorkerOrder) {
  const int h = 200, w = 200, pitch = 208;
  Frame im1(h, w, pitch, 3, 100.0f), im2(h, w, pitch, 3, 100.0f);
  Frame hog1(h, w, pitch, kHogBins), hog2(h, w, pitch, kHogBins), e1(h, w, pitch, 1, 10.0f),
      e2(h, w, pitch, 1, 10000.0f), corner(h, w, pitch, 1);
  const int ax = 100, ay = 100;  // window columns 20..180, rows 20..180
  auto admit = [&](int x, int y, float energy, float centreBin0) {
    e2.at(x, y) = energy;
    hog2.at(x, y, 0) = centreBin0;  // the descriptor's centre cell: distance = value^2
  };
  admit(70, 30, 10.0f, 0.0f);    // A: distance 0, column 50
  admit(60, 120, 20.0f, 0.0f);   // B: distance 0, column 40, energy exactly twice: passes
  admit(60, 150, 5.0f, 2.0f);    // column 40 runner-up, distance 4, energy exactly half
  admit(70, 160, 10.0f, 3.0f);   // column 50 runner-up, distance 9
  admit(90, 40, 10.0f, 1.0f);    // column 70, distance 1
  admit(30, 170, 20.001f, 0.0f);  // distance 0 but energy above twice: rejected
  admit(40, 25, 10.0f, 0.0f);    // distance 0 but colour too far: rejected
  im2.at(40, 25, 1) = 100.0f + 17.4f;
  admit(50, 50, 10.0f, 0.0f);    // colour difference exactly 300 (10^2 x 3) passes: column 30
  for (int c = 0; c < 3; ++c) im2.at(50, 50, c) = 110.0f;

  SearchResult r = searchOne(im1, im2, hog1, hog2, corner, 0, e1, e2, 0.0f, ax, ay);
  EXPECT_EQ(r.x, 50);  // the leftmost column holding distance 0
  EXPECT_EQ(r.y, 50);
  EXPECT_EQ(r.dist, 0.0f);

  im2.at(50, 50, 0) = 110.01f;  // now just above 300: rejected
  r = searchOne(im1, im2, hog1, hog2, corner, 0, e1, e2, 0.0f, ax, ay);
  EXPECT_EQ(r.x, 60);  // column 40 beats column 50 although A lies in an earlier row
  EXPECT_EQ(r.y, 120);
  EXPECT_EQ(r.dist, 0.0f);
  // Columns 40 and 50 both hold 0; each counts as a winner with its own
  // runner-up (4 and 9), and column 70 holds 1: the second best is 1.
  EXPECT_EQ(r.dist2, 1.0f);

  // Two zeros in one column: the column's second best is 0 itself.
  admit(60, 180, 10.0f, 0.0f);
  r = searchOne(im1, im2, hog1, hog2, corner, 0, e1, e2, 0.0f, ax, ay);
  EXPECT_EQ(r.y, 120);
  EXPECT_EQ(r.dist2, 0.0f);
}

// A zero query makes each candidate's distance the square of its norm, so
// the norm bound is tight. The seed square holds 9 twice in one column, so
// the running second best is 9 from the start; the candidate at distance 9
// in a later row must survive the bound, since it ties the best further left.
TEST(HogMatch, NormBoundKeepsCandidatesAtTheBound) {
  const int h = 200, w = 200, pitch = 208;
  Frame im(h, w, pitch, 3, 100.0f), hog1(h, w, pitch, kHogBins), hog2(h, w, pitch, kHogBins);
  Frame e1(h, w, pitch, 1, 10.0f), e2(h, w, pitch, 1, 10000.0f), corner(h, w, pitch, 1);
  for (const auto& [x, y] : {std::pair{100, 99}, std::pair{100, 101}, std::pair{60, 170}}) {
    e2.at(x, y) = 10.0f;
    hog2.at(x, y, 3) = 3.0f;  // distance 9
  }
  const SearchResult r = searchOne(im, im, hog1, hog2, corner, 0, e1, e2, 0.0f, 100, 100);
  EXPECT_EQ(r.x, 60);
  EXPECT_EQ(r.y, 170);
  EXPECT_EQ(r.dist, 9.0f);
  EXPECT_EQ(r.dist2, 9.0f);
}

// The square around the point is formed before the rest of the window, so
// candidates reach a column out of row order, and a candidate equal to the
// running second best must still be formed: it may tie the best further left.
TEST(HogMatch, SeedSquareKeepsTheTopToBottomTies) {
  const int h = 200, w = 200, pitch = 208;
  Frame im(h, w, pitch, 3, 100.0f), hog1(h, w, pitch, kHogBins), hog2(h, w, pitch, kHogBins);
  Frame e1(h, w, pitch, 1, 10.0f), e2(h, w, pitch, 1, 10000.0f), corner(h, w, pitch, 1);
  const int ax = 100, ay = 100;
  for (int y : {100, 30}) e2.at(ax, y) = 10.0f;  // two zeros in the point's column, the lower one seeded
  SearchResult r = searchOne(im, im, hog1, hog2, corner, 0, e1, e2, 0.0f, ax, ay);
  EXPECT_EQ(r.x, ax);
  EXPECT_EQ(r.y, 30);
  EXPECT_EQ(r.dist2, 0.0f);

  e2.at(ax, 101) = 10.0f;  // the seed square alone makes best and second best 0
  e2.at(80, 150) = 10.0f;  // a zero further left, formed later
  r = searchOne(im, im, hog1, hog2, corner, 0, e1, e2, 0.0f, ax, ay);
  EXPECT_EQ(r.x, 80);
  EXPECT_EQ(r.y, 150);
  EXPECT_EQ(r.dist, 0.0f);
  EXPECT_EQ(r.dist2, 0.0f);
}

// Points at the border and weak points are left untouched, never reading
// outside the frame.
TEST(HogMatch, BorderAndWeakPointsGiveNoCandidate) {
  Frame im(40, 40, 48, 3, 50.0f), hog(40, 40, 48, kHogBins), e(40, 40, 48, 1, 1.0f);
  for (int p : {0, 2, 37}) {
    const SearchResult r = searchOne(im, im, hog, hog, e, 0, e, e, 0.0f, p, 20);
    EXPECT_EQ(r.x, -7) << p;
    EXPECT_EQ(r.dist, -7.0f) << p;
  }
  // A NaN cornerness counts as 0: below any positive threshold.
  Frame corner(40, 40, 48, 1, std::nanf(""));
  EXPECT_EQ(searchOne(im, im, hog, hog, corner, 1, e, e, 1.0f, 20, 20).x, -7);
  EXPECT_EQ(searchOne(im, im, hog, hog, corner, 0, e, e, 1.0f, 20, 20).x, 12);
  // The cornerness is truncated to an integer before the comparison: 0.9
  // fails a threshold of 0.5 / 8 that 1.0 passes.
  Frame weak(40, 40, 48, 1, 0.9f), strong(40, 40, 48, 1, 1.0f);
  EXPECT_EQ(searchOne(im, im, hog, hog, weak, 1, e, e, 0.5f, 20, 20).x, -7);
  EXPECT_EQ(searchOne(im, im, hog, hog, strong, 1, e, e, 0.5f, 20, 20).x, 12);
}

// The executor forms a seed square first (around where the previous point
// of the call landed), then walks the window row by row in batches, dropping
// candidates against the running second best; the result must equal one
// worker per column walking its column top to bottom with plain updates, then
// the fold in worker order. Small integer HOG values make many distances tie,
// and close colours and energies admit most candidates. The points are
// searched in one call so that each is seeded by its predecessor.
TEST(HogMatch, BatchedSearchEqualsTheOneWorkerPerColumnWalk) {
  const int h = 150, w = 190, pitch = 192;
  Frame im1(h, w, pitch, 3), im2(h, w, pitch, 3), hog1(h, w, pitch, kHogBins), hog2(h, w, pitch, kHogBins);
  Frame e1(h, w, pitch, 1), e2(h, w, pitch, 1), corner(h, w, pitch, 1);
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> small(0, 2), colour(90, 110), energy(10, 35);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < 3; ++c) {
        im1.at(x, y, c) = (float)colour(rng);
        im2.at(x, y, c) = (float)colour(rng);
      }
      for (int b = 0; b < kHogBins; ++b) {
        hog1.at(x, y, b) = 0.5f * (float)small(rng);
        hog2.at(x, y, b) = 0.5f * (float)small(rng);
      }
      e1.at(x, y) = (float)energy(rng);
      e2.at(x, y) = (float)energy(rng);
    }
  const std::size_t plane = (std::size_t)pitch * h;
  const int points[][2] = {{95, 75}, {12, 12}, {177, 137}, {40, 100}, {150, 20}, {96, 74}, {93, 77}};
  const int n = sizeof points / sizeof points[0];
  std::vector<int> mx(n), my(n), rx(n), ry(n);
  std::vector<float> rd(n), rd2(n);
  for (int p = 0; p < n; ++p) {
    mx[p] = points[p][0];
    my[p] = points[p][1];
  }
  cpu::HOGMatch(im1.ptr(), im2.ptr(), hog1.ptr(), hog2.ptr(), corner.ptr(), 0, e1.ptr(), e2.ptr(), 0.0f, rx.data(),
                ry.data(), rd.data(), rd2.data(), mx.data(), my.data(), n, h, w, pitch);
  for (int p = 0; p < n; ++p) {
    const int ax = mx[p], ay = my[p];
    float desc[kHogCells * kHogBins];
    for (int b = 0; b < kHogBins; ++b) hogLoadDescriptorBin(hog1.ptr(), plane, pitch, kHogBins, ax, ay, b, desc);
    const MatchWindow win = matchSearchWindow(ax, ay, h, w);
    const std::size_t query = (std::size_t)ay * pitch + ax;
    MatchBest worker[kMatchWorkers];
    float best = kNoMatch;
    for (int t = 0; t < kMatchWorkers; ++t) {
      worker[t] = matchBestInit();
      for (int x = win.x0 + t; x <= win.x1; x += kMatchWorkers)
        for (int y = win.y0; y <= win.y1; ++y)
          matchCandidate(worker[t], desc, e1.at(ax, ay), im1.ptr(), im2.ptr(), e2.ptr(), hog2.ptr(), plane, pitch,
                         kHogBins, query, x, y);
      if (worker[t].d1 < best) best = worker[t].d1;
    }
    MatchFold fold = matchFoldInit(best);
    for (const MatchBest& m : worker) matchFoldWorker(fold, m);

    SCOPED_TRACE(::testing::Message() << ax << "," << ay);
    EXPECT_EQ(rx[p], fold.x);
    EXPECT_EQ(ry[p], fold.y);
    EXPECT_EQ(rd[p], fold.best);
    EXPECT_EQ(rd2[p], fold.second);
  }
}

}  // namespace
}  // namespace vemo
