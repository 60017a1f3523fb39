#include "backends/cpu/hog_match.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "backends/cpu/clones.h"
#include "backends/cpu/match_bounds.h"
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
  const float* norm2;  // descriptor norms of frame 2
  int radius;          // half-width of the search window
};

// What the search computes is fixed by the 256-worker layout of
// pixel/hog_match.h: per window column the smallest and second smallest
// distance and the topmost position of the smallest, folded in column order.
// This executor reaches the same fold with much less work:
//
//  - Candidates may come in any order (matchBestUpdateAnyOrder keeps each
//    column's state order-free), so a few candidates around the position
//    where the point is expected to land are formed first: there the best and
//    a close runner-up usually lie.
//  - The fold's second best over the candidates seen so far (`second`) never
//    increases as candidates are added, and a candidate whose distance
//    exceeds the final second best changes neither the best, nor its
//    position, nor the second best. So a candidate is dropped as soon as its
//    partial distance exceeds `second` (or its column's own second best,
//    which leaves the column unchanged). Every term of the distance is a
//    rounded sum with a non-negative square, so partial sums never decrease
//    and a dropped candidate's full distance would exceed the bound as well.
//    Equal distances are never dropped: ties resolve as in the full search.
//  - Admitted candidates whose descriptor norm lies too far from the point's
//    are dropped before any term is formed (backends/cpu/match_bounds.h):
//    their distance would exceed `second` as it stood at the start of the row.
//
// Admitted candidates are formed in two ways, depending on how densely they
// occur (dark or flat scenes admit most of a row, textured ones a few per
// cent):
//  - a group of kLanes neighbouring columns of one row with at least
//    kDenseGroup admitted candidates is formed as a whole: its values lie side
//    by side in every HOG plane, so each step of the kLanes independent chains
//    is one vector load, subtraction and fused multiply-add;
//  - isolated candidates are collected in a list and formed kBatch at a time,
//    as independent scalar chains whose latencies overlap.
constexpr int kLanes = 16;
constexpr int kDenseGroup = 4;
static_assert(kLanes == 16, "a group's lanes are two words of admitted flags");
constexpr int kBatch = 4;
// Collected candidates are formed once this many are waiting.
constexpr int kPendingFlush = 64;
// Half-width of the square of candidates formed first.
constexpr int kSeedRadius = 2;
// Points handed to a thread at a time. Within a chunk each point starts from
// the displacement its predecessor found; chunks are fixed ranges, so the
// work (not only the result) is the same for every thread count.
constexpr int kChunk = 8;

// A collected candidate: window column and image row.
struct Pending {
  int c, y;
};

// One point's search state: the columns (one array per field, so that a
// group reads its lanes' bounds with vector loads; padded for the lanes of a
// group past the last column) and the fold's running best and second best
// over the candidates formed so far.
struct Search {
  float d1[kMatchWorkers + kLanes];
  float d2[kMatchWorkers + kLanes];
  int y[kMatchWorkers + kLanes];
  float best, second;
  int x0;

  void reset(int x0In) {
    for (int c = 0; c < kMatchWorkers + kLanes; ++c) {
      const MatchBest m = matchBestInit();
      d1[c] = m.d1;
      d2[c] = m.d2;
      y[c] = m.y;
    }
    best = kNoMatch;
    second = kNoMatch;
    x0 = x0In;
  }

  MatchBest column(int c) const { return MatchBest{d1[c], d2[c], x0 + c, y[c]}; }

  // Distance above which a candidate of column c cannot change the result.
  float bound(int c) const { return d2[c] < second ? d2[c] : second; }

  // The update of column c, then the running best and second best. Only the
  // updated column's share changes, and, when the best falls, the columns
  // that held the old best now add it to the second best.
  void update(int c, float d, int row) {
    MatchBest m = column(c);
    if (!matchBestUpdateAnyOrder(m, d, x0 + c, row)) return;
    d1[c] = m.d1;
    d2[c] = m.d2;
    y[c] = m.y;
    if (m.d1 < best) {
      if (best < second) second = best;
      best = m.d1;
    }
    const float share = matchFoldShare(m, best);
    if (share < second) second = share;
  }
};

// Bit l set where byte l of `bytes` (each 0 or 1) is 1.
inline unsigned byteFlagsToBits(const unsigned char* bytes) {
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return (unsigned)((word * 0x0102040810204080ull) >> 56);
}

// One group: columns c .. c + kLanes - 1 of row y, the ones to form flagged
// in the bits of `lanes`. Each flagged lane stops being interesting once its
// partial distance exceeds its bound; the group stops when every lane has.
// Lanes past the window are never admitted and never hold the group back;
// they read at most 15 + 4 columns beyond the window's last one
// (width - 13), which stays inside the buffer because their cells lie at
// least 9 rows above its last row.
inline void matchGroup(unsigned lanes, Search& s, int c, int y, const float* desc,
                       const float* hog2, std::size_t plane, int pitch) {
  float d[kLanes], bound[kLanes];
  const float second = s.second;
  for (int l = 0; l < kLanes; ++l) {
    d[l] = 0.0f;
    const float own = s.d2[c + l];
    bound[l] = (lanes >> l) & 1 ? (own < second ? own : second) : -1.0f;
  }
  const float* centre = hog2 + (std::size_t)y * pitch + (s.x0 + c);
  for (int b = 0; b < kHogBins; ++b) {
    const float* planeCentre = centre + (std::size_t)b * plane;
    for (int k = 0; k < kHogCells; ++k) {
      const float q = desc[k * kHogBins + b];
      const float* v = planeCentre + (long)hogCellDy(k) * pitch + hogCellDx(k);
#pragma omp simd
      for (int l = 0; l < kLanes; ++l) d[l] = hogDistanceTerm(q, v[l], d[l]);
    }
    bool done = true;
    for (int l = 0; l < kLanes; ++l) done &= d[l] > bound[l];
    if (done) return;
  }
  for (; lanes != 0; lanes &= lanes - 1) {
    const int l = __builtin_ctz(lanes);
    if (!(d[l] > bound[l])) s.update(c + l, d[l], y);
  }
}

// Forms the collected candidates pending[0..n), kBatch at a time, each
// against the bound its column had when its batch started (bounds only fall,
// so a stale bound is never below the current one).
inline void flushPending(const Pending* pending, int n, Search& s, const float* desc, const float* hog2,
                         std::size_t plane, int pitch) {
  for (int i = 0; i < n; i += kBatch) {
    const int lanes = n - i < kBatch ? n - i : kBatch;
    float d[kBatch], bound[kBatch];
    const float* centre[kBatch];
    for (int l = 0; l < kBatch; ++l) {
      const Pending& q = pending[i + (l < lanes ? l : 0)];
      d[l] = 0.0f;
      bound[l] = l < lanes ? s.bound(q.c) : -1.0f;
      centre[l] = hog2 + (std::size_t)q.y * pitch + (s.x0 + q.c);
    }
    for (int b = 0; b < kHogBins; ++b) {
      for (int l = 0; l < kBatch; ++l)
        d[l] = hogDistanceBin(desc, centre[l] + (std::size_t)b * plane, pitch, kHogBins, b, d[l]);
      bool done = true;
      for (int l = 0; l < kBatch; ++l) done &= d[l] > bound[l];
      if (done) break;
    }
    for (int l = 0; l < lanes; ++l)
      if (!(d[l] > bound[l])) s.update(pending[i + l].c, d[l], pending[i + l].y);
  }
}

// One point of the search. Returns false when the point is skipped (nothing
// written). (seedX, seedY) is the position where the point is expected to
// land; the square of candidates around it is formed first.
VEMO_CPU_CLONES
bool matchPoint(const MatchArgs& a, int p, int seedX, int seedY) {
  const int ax = a.mx[p];
  const int ay = a.my[p];
  const int pitch = a.pitch;
  if (!hogDescriptorInside(ax, ay, a.height, a.width)) return false;
  const std::size_t query = (std::size_t)ay * pitch + ax;
  if (a.checkCorner != 0 && matchCornerRejects(a.Cornerness[query], a.average)) return false;
  if (ax == 0 || ay == 0) return false;

  const std::size_t plane = (std::size_t)pitch * a.height;
  float desc[kHogCells * kHogBins];
  for (int b = 0; b < kHogBins; ++b) hogLoadDescriptorBin(a.HOG1, plane, pitch, kHogBins, ax, ay, b, desc);
  const float e1 = a.Energy1[query];
  const float nq = descriptorNorm(desc);

  const MatchWindow w = matchSearchWindow(ax, ay, a.height, a.width, a.radius);
  const int columns = w.x1 >= w.x0 ? w.x1 - w.x0 + 1 : 0;
  Search s;
  s.reset(w.x0);

  Pending pending[kPendingFlush + kMatchWorkers];
  int n = 0;
  // The seed square, clipped to the window (possibly empty).
  const int sx0 = seedX - kSeedRadius > w.x0 ? seedX - kSeedRadius : w.x0;
  const int sx1 = seedX + kSeedRadius < w.x1 ? seedX + kSeedRadius : w.x1;
  const int sy0 = seedY - kSeedRadius > w.y0 ? seedY - kSeedRadius : w.y0;
  const int sy1 = seedY + kSeedRadius < w.y1 ? seedY + kSeedRadius : w.y1;
  for (int y = sy0; y <= sy1; ++y)
    for (int x = sx0; x <= sx1; ++x)
      if (matchAdmissible(e1, a.Image1, a.Image2, a.Energy2, plane, query, (std::size_t)y * pitch + x))
        pending[n++] = Pending{x - w.x0, y};
  flushPending(pending, n, s, desc, a.HOG2, plane, pitch);
  n = 0;

  unsigned char admitted[kMatchWorkers + kLanes] = {};
  for (int y = w.y0; y <= w.y1; ++y) {
    const std::size_t row = (std::size_t)y * pitch + w.x0;
    const float reach = normReach(s.second);
    // Both tests for the whole row, branch-free so that the loop vectorises.
    for (int c = 0; c < columns; ++c) {
      const std::size_t j = row + c;
      admitted[c] = (unsigned char)(!matchEnergyRejects(e1, a.Energy2[j]) &
                                    !(matchColourDistance(a.Image1, a.Image2, plane, query, j) > kMatchColourLimit));
    }
    // The seed square was formed already.
    if (y >= sy0 && y <= sy1)
      for (int x = sx0; x <= sx1; ++x) admitted[x - w.x0] = 0;
    for (int c = 0; c < columns; c += kLanes) {
      unsigned lanes = byteFlagsToBits(admitted + c) | byteFlagsToBits(admitted + c + 8) << 8;
      if (lanes == 0) continue;
      // Lanes out of reach by their norm.
      for (unsigned rest = lanes; rest != 0; rest &= rest - 1) {
        const int l = __builtin_ctz(rest);
        lanes &= ~((unsigned)normGapExceeds(nq, a.norm2[row + c + l], reach) << l);
      }
      if (lanes == 0) continue;
      if (__builtin_popcount(lanes) >= kDenseGroup) {
        matchGroup(lanes, s, c, y, desc, a.HOG2, plane, pitch);
      } else {
        for (unsigned rest = lanes; rest != 0; rest &= rest - 1) pending[n++] = Pending{c + __builtin_ctz(rest), y};
      }
    }
    if (n >= kPendingFlush) {
      flushPending(pending, n, s, desc, a.HOG2, plane, pitch);
      n = 0;
    }
  }
  flushPending(pending, n, s, desc, a.HOG2, plane, pitch);

  MatchFold fold = matchFoldInit(s.best);
  for (int c = 0; c < columns; ++c) matchFoldWorker(fold, s.column(c));
  a.match_x[p] = fold.x;
  a.match_y[p] = fold.y;
  a.match_dist[p] = fold.best;
  a.match_dist2[p] = fold.second;
  return true;
}

}  // namespace

void HOGMatch(const float* Image1, const float* Image2, const float* HOG1, const float* HOG2,
              const float* Cornerness, int checkCorner, const float* Energy1, const float* Energy2, float average,
              int* match_x, int* match_y, float* match_dist, float* match_dist2, const int* mx, const int* my, int n,
              int height, int width, int pitch, int radius) {
  checkPlane("HOGMatch", height, width, pitch);
  if (n < 0) refuseArguments("HOGMatch: negative point count");
  if (radius < 1 || radius > kMatchRadius) refuseArguments("HOGMatch: search radius out of range");
  const std::vector<float> norm2 = descriptorNorms(HOG2, height, width, pitch);
  const MatchArgs a{Image1,  Image2,  HOG1,       HOG2,        Cornerness, Energy1, Energy2, checkCorner,
                    average, match_x, match_y,    match_dist,  match_dist2, mx,     my,      height,
                    width,   pitch,   norm2.data(), radius};
  // Points take very different times (weak points end at once, border points
  // search smaller windows), so chunks are handed out dynamically. Each point
  // is computed alone, so the schedule does not change results.
  const int chunks = (n + kChunk - 1) / kChunk;
  parallelTasks(chunks, [&](int k) {
    int dx = 0, dy = 0;  // the first point of a chunk is expected where it stands
    const int end = (k + 1) * kChunk < n ? (k + 1) * kChunk : n;
    for (int p = k * kChunk; p < end; ++p) {
      if (!matchPoint(a, p, a.mx[p] + dx, a.my[p] + dy)) continue;
      if (match_dist[p] < kNoMatch) {
        dx = match_x[p] - a.mx[p];
        dy = match_y[p] - a.my[p];
      }
    }
  });
}

}  // namespace vemo::cpu
