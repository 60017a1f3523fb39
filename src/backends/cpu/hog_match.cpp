#include "backends/cpu/hog_match.h"

#include <cstdint>
#include <cstring>

#include "backends/cpu/clones.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/hog.h"
#include "pixel/hog_match.h"

namespace vemo::cpu {

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

// Candidates that passed both tests, waiting for their distance: window
// column and image row.
struct Pending {
  int c, y;
};

// Distances are formed for kLanes candidates at a time: their fused
// multiply-add chains are independent, so the processor overlaps them
// instead of waiting on one chain's latency. Measured at 640 x 480 (textured
// pair, 2 threads): about 4x faster forward search than one candidate at a
// time.
constexpr int kLanes = 4;
// Candidates collected (over several rows) before their distances are formed.
constexpr int kPendingFlush = 64;

// Forms the distances of pending[0..n) and applies the updates in list order.
//
// Each candidate stops early against the second best its column had when the
// batch started. Second bests only decrease, so that bound is never below the
// one the update will see: a candidate that stopped (partial sum >= bound)
// leaves its column unchanged, exactly as with the full distance. Updates run
// in the order the candidates were collected, rows top to bottom, so every
// column sees its candidates in the order of the one-worker-per-column walk.
inline void flushPending(const Pending* pending, int n, MatchBest* column, const float* desc, const float* hog2,
                         std::size_t plane, int pitch, int x0) {
  for (int i = 0; i < n; i += kLanes) {
    const int lanes = n - i < kLanes ? n - i : kLanes;
    float d[kLanes], bound[kLanes];
    const float* centre[kLanes];
    for (int l = 0; l < kLanes; ++l) {
      const Pending& q = pending[i + (l < lanes ? l : 0)];
      d[l] = 0.0f;
      bound[l] = l < lanes ? column[q.c].d2 : -1.0f;  // idle lanes never hold the batch back
      centre[l] = hog2 + (std::size_t)q.y * pitch + (x0 + q.c);
    }
    for (int b = 0; b < kHogBins; ++b) {
      for (int l = 0; l < kLanes; ++l)
        d[l] = hogDistanceBin(desc, centre[l] + (std::size_t)b * plane, pitch, kHogBins, b, d[l]);
      bool done = true;
      for (int l = 0; l < kLanes; ++l) done = done && d[l] >= bound[l];
      if (done) break;
    }
    for (int l = 0; l < lanes; ++l) {
      const Pending& q = pending[i + l];
      matchBestUpdate(column[q.c], d[l], x0 + q.c, q.y);
    }
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

  unsigned char admitted[kMatchWorkers];
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
    // Collect the admitted columns, skipping eight rejected ones at a time
    // (usually most of a row is rejected).
    int c = 0;
    for (; c + 8 <= columns; c += 8) {
      std::uint64_t eight;
      std::memcpy(&eight, admitted + c, sizeof eight);
      if (eight == 0) continue;
      for (int k = c; k < c + 8; ++k)
        if (admitted[k]) pending[n++] = Pending{k, y};
    }
    for (; c < columns; ++c)
      if (admitted[c]) pending[n++] = Pending{c, y};
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

}  // namespace vemo::cpu
