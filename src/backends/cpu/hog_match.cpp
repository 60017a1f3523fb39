#include "backends/cpu/hog_match.h"

#include <cstdint>
#include <cstring>

#include "backends/cpu/clones.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/hog.h"
#include "pixel/hog_match.h"

namespace flowcore::cpu {

namespace {

struct MatchArgs {
  const float *Image1, *Image2, *HOG1, *HOG2, *Cornerness, *Energy1, *Energy2;
  int checkCorner;
  float average;
  int *match_x, *match_y;
  float *match_dist, *match_dist2;
  const int *mx, *my;
  int height, width, pitch;
};

// Admitted candidates are handled in two ways, depending on how densely they
// occur (dark or flat scenes admit most of a row, textured ones a few per
// cent):
//  - a group of kLanes neighbouring columns of one row with at least
//    kDenseGroup admitted candidates is formed as a whole: its values lie side
//    by side in every HOG plane, so each step of the kLanes independent chains
//    is one vector load, subtraction and fused multiply-add;
//  - isolated candidates are collected in a list and formed kBatch at a time,
//    as independent scalar chains whose latencies overlap.
// Measured with one thread (CPU time of the whole matching stage): on a dark
// 1024 x 436 pair 15.7 s one candidate at a time, 6.2 s with groups of 8,
// 5.1 s with groups of 16; on a textured 640 x 480 pair (few admitted) the
// groups alone cost 1.6 s where the list takes 0.9 s; the mix keeps both.
constexpr int kLanes = 16;
constexpr int kDenseGroup = 4;
constexpr int kBatch = 4;
// Collected candidates are formed once this many are waiting.
constexpr int kPendingFlush = 64;

// A collected candidate: window column and image row.
struct Pending {
  int c, y;
};

// One group: columns c .. c + kLanes - 1 of row y. Each admitted lane stops
// being interesting once its partial distance reaches its column's second
// best; the group stops when every lane has (partial sums only grow, so a
// lane that reached the bound cannot change its column). Lanes past the
// window are never admitted and never hold the group back; they read at most
// 15 + 4 columns beyond the window's last one (width - 13), which stays inside
// the buffer because their cells lie at least 9 rows above its last row.
inline void matchGroup(const unsigned char* admitted, MatchBest* column, int c, int y, const float* desc,
                       const float* hog2, std::size_t plane, int pitch, int x0) {
  float d[kLanes], bound[kLanes];
  for (int l = 0; l < kLanes; ++l) {
    d[l] = 0.0f;
    bound[l] = admitted[c + l] ? column[c + l].d2 : 0.0f;
  }
  const float* centre = hog2 + (std::size_t)y * pitch + (x0 + c);
  for (int b = 0; b < kHogBins; ++b) {
    const float* planeCentre = centre + (std::size_t)b * plane;
    for (int k = 0; k < kHogCells; ++k) {
      const float q = desc[k * kHogBins + b];
      const float* v = planeCentre + (long)hogCellDy(k) * pitch + hogCellDx(k);
#pragma omp simd
      for (int l = 0; l < kLanes; ++l) d[l] = hogDistanceTerm(q, v[l], d[l]);
    }
    bool done = true;
    for (int l = 0; l < kLanes; ++l) done &= (admitted[c + l] == 0) | (d[l] >= bound[l]);
    if (done) break;
  }
  for (int l = 0; l < kLanes; ++l)
    if (admitted[c + l]) matchBestUpdate(column[c + l], d[l], x0 + c + l, y);
}

// Forms the collected candidates pending[0..n) and applies their updates in
// list order (rows top to bottom). Each stops early against the second best
// its column had when its batch started; second bests only decrease, so that
// bound is never below the one its update sees, and a candidate that stopped
// leaves its column unchanged, exactly as with the full distance.
inline void flushPending(const Pending* pending, int n, MatchBest* column, const float* desc, const float* hog2,
                         std::size_t plane, int pitch, int x0) {
  for (int i = 0; i < n; i += kBatch) {
    const int lanes = n - i < kBatch ? n - i : kBatch;
    float d[kBatch], bound[kBatch];
    const float* centre[kBatch];
    for (int l = 0; l < kBatch; ++l) {
      const Pending& q = pending[i + (l < lanes ? l : 0)];
      d[l] = 0.0f;
      bound[l] = l < lanes ? column[q.c].d2 : -1.0f;
      centre[l] = hog2 + (std::size_t)q.y * pitch + (x0 + q.c);
    }
    for (int b = 0; b < kHogBins; ++b) {
      for (int l = 0; l < kBatch; ++l)
        d[l] = hogDistanceBin(desc, centre[l] + (std::size_t)b * plane, pitch, kHogBins, b, d[l]);
      bool done = true;
      for (int l = 0; l < kBatch; ++l) done &= d[l] >= bound[l];
      if (done) break;
    }
    for (int l = 0; l < lanes; ++l) matchBestUpdate(column[pending[i + l].c], d[l], x0 + pending[i + l].c, pending[i + l].y);
  }
}

// One point of the search. Column c of the window is the column of worker c
// of the 256-wide layout. The window is walked row by row; each column's own
// best and second best see that column's candidates top to bottom, as the
// worker would, while memory is read in rows.
VEMO_CPU_CLONES
void matchPoint(const MatchArgs& a, int p) {
  const int ax = a.mx[p];
  const int ay = a.my[p];
  const int pitch = a.pitch;
  if (!hogDescriptorInside(ax, ay, a.height, a.width)) return;
  const std::size_t query = (std::size_t)ay * pitch + ax;
  if (a.checkCorner != 0 && matchCornerRejects(a.Cornerness[query], a.average)) return;
  if (ax == 0 || ay == 0) return;

  const std::size_t plane = (std::size_t)pitch * a.height;
  float desc[kHogCells * kHogBins];
  for (int b = 0; b < kHogBins; ++b) hogLoadDescriptorBin(a.HOG1, plane, pitch, kHogBins, ax, ay, b, desc);
  const float e1 = a.Energy1[query];

  const MatchWindow w = matchSearchWindow(ax, ay, a.height, a.width);
  const int columns = w.x1 >= w.x0 ? w.x1 - w.x0 + 1 : 0;
  MatchBest column[kMatchWorkers];
  for (int c = 0; c < columns; ++c) column[c] = matchBestInit();

  unsigned char admitted[kMatchWorkers + kLanes] = {};
  Pending pending[kPendingFlush + kMatchWorkers];
  int n = 0;
  for (int y = w.y0; y <= w.y1; ++y) {
    const std::size_t row = (std::size_t)y * pitch + w.x0;
    // Both tests for the whole row, branch-free so that the loop vectorises.
    for (int c = 0; c < columns; ++c) {
      const std::size_t j = row + c;
      admitted[c] = (unsigned char)(!matchEnergyRejects(e1, a.Energy2[j]) &
                                    !(matchColourDistance(a.Image1, a.Image2, plane, query, j) > kMatchColourLimit));
    }
    for (int c = 0; c < columns; c += kLanes) {
      // Admitted entries are 0 or 1, so the bits set in a word count them.
      std::uint64_t words[kLanes / 8];
      std::memcpy(words, admitted + c, sizeof words);
      int count = 0;
      for (std::uint64_t word : words) count += __builtin_popcountll(word);
      if (count >= kDenseGroup) {
        // The list may hold earlier rows of these columns: form them first.
        flushPending(pending, n, column, desc, a.HOG2, plane, pitch, w.x0);
        n = 0;
        matchGroup(admitted, column, c, y, desc, a.HOG2, plane, pitch, w.x0);
      } else if (count > 0) {
        for (int k = c; k < c + kLanes; ++k)
          if (admitted[k]) pending[n++] = Pending{k, y};
      }
    }
    if (n >= kPendingFlush) {
      flushPending(pending, n, column, desc, a.HOG2, plane, pitch, w.x0);
      n = 0;
    }
  }
  flushPending(pending, n, column, desc, a.HOG2, plane, pitch, w.x0);

  float best = kNoMatch;
  for (int c = 0; c < columns; ++c)
    if (column[c].d1 < best) best = column[c].d1;
  MatchFold fold = matchFoldInit(best);
  for (int c = 0; c < columns; ++c) matchFoldWorker(fold, column[c]);
  a.match_x[p] = fold.x;
  a.match_y[p] = fold.y;
  a.match_dist[p] = fold.best;
  a.match_dist2[p] = fold.second;
}

}  // namespace

void HOGMatch(const float* Image1, const float* Image2, const float* HOG1, const float* HOG2,
              const float* Cornerness, int checkCorner, const float* Energy1, const float* Energy2, float average,
              int* match_x, int* match_y, float* match_dist, float* match_dist2, const int* mx, const int* my, int n,
              int height, int width, int pitch) {
  checkPlane("HOGMatch", height, width, pitch);
  if (n < 0) refuseArguments("HOGMatch: negative point count");
  const MatchArgs a{Image1, Image2, HOG1,    HOG2,    Cornerness, Energy1, Energy2,    checkCorner, average,
                    match_x, match_y, match_dist, match_dist2, mx,         my,      height,     width,       pitch};
  // Points take very different times (weak points end at once, border points
  // search smaller windows), so they are handed out in small dynamic chunks.
  // Each point is computed alone, so the schedule does not change results.
#pragma omp parallel for schedule(dynamic, 8)
  for (int p = 0; p < n; ++p) matchPoint(a, p);
}

}  // namespace flowcore::cpu
