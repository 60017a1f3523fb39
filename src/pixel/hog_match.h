// Per-point rules of the exhaustive descriptor search.
//
// The descriptor of a point (ax, ay) is the HOG field read at the nine cells
// (ax + dx, ay + dy), dy in {-4, 0, 4} (outer), dx in {-4, 0, 4} (inner):
// element k * nOri + b holds bin b of cell k, 135 floats for 15 bins. A
// point of one frame is compared with every pixel of a square window of the
// other frame. Two cheap tests reject a candidate before the distance is
// formed: its total HOG energy must lie within a factor of two of the
// point's, and its colour must be close.
//
// The search is laid out for 256 workers per point: worker t takes the
// window columns x0 + t, x0 + t + 256, ... and walks each column from the
// top row down, keeping its own best and second-best distance. The window is
// at most 161 columns wide, so every worker owns at most one column.
#pragma once

#include <cmath>
#include <cstddef>

#include "common/hd.h"

namespace vemo {

// Half-width of the search window: the method's, and the largest a search
// may use (the 256-worker layout holds 2 * 80 + 1 columns).
constexpr int kMatchRadius = 80;
// Candidates stay this far from the image border so that every cell of their
// descriptor (+-4 pixels) lies inside the image.
constexpr int kMatchBorder = 12;
// Workers per point; the column stride of the search.
constexpr int kMatchWorkers = 256;
// Cells of a descriptor and their spacing in pixels.
constexpr int kHogCells = 9;
constexpr int kHogCellStep = 4;
// Distance standing for "no candidate".
constexpr float kNoMatch = 1e9f;
// Candidates whose summed squared colour difference exceeds this are skipped.
constexpr float kMatchColourLimit = 300.0f;

static_assert(2 * kMatchRadius + 1 <= kMatchWorkers, "each worker owns at most one window column");

// Offset of cell k from its point, in rows and columns.
VEMO_INLINE int hogCellDy(int k) { return (k / 3 - 1) * kHogCellStep; }
VEMO_INLINE int hogCellDx(int k) { return (k % 3 - 1) * kHogCellStep; }

// Inclusive search window of half-width `radius` (1 .. kMatchRadius) around
// (ax, ay) in an image of the given size. Empty (x0 > x1 or y0 > y1) for
// images of 24 pixels or less in a dimension; a 25-pixel dimension leaves the
// single position 12.
struct MatchWindow {
  int x0, x1, y0, y1;
};

VEMO_INLINE MatchWindow matchSearchWindow(int ax, int ay, int height, int width, int radius = kMatchRadius) {
  MatchWindow w;
  w.y0 = ay - radius > kMatchBorder ? ay - radius : kMatchBorder;
  w.y1 = ay + radius < height - 1 - kMatchBorder ? ay + radius : height - 1 - kMatchBorder;
  w.x0 = ax - radius > kMatchBorder ? ax - radius : kMatchBorder;
  w.x1 = ax + radius < width - 1 - kMatchBorder ? ax + radius : width - 1 - kMatchBorder;
  return w;
}

// Whether a point's descriptor cells all lie inside the image. Points that
// fail are not searched (the grid and every search result always pass).
VEMO_INLINE bool hogDescriptorInside(int ax, int ay, int height, int width) {
  return ax >= kHogCellStep && ay >= kHogCellStep && ax < width - kHogCellStep && ay < height - kHogCellStep;
}

// Bin b of the nine cells of the descriptor of (ax, ay) into desc[k * nOri + b].
VEMO_INLINE void hogLoadDescriptorBin(const float* hog, std::size_t planeStride, int pitch, int nOri, int ax,
                                      int ay, int b, float* desc) {
  const float* plane = hog + (std::size_t)b * planeStride;
  for (int k = 0; k < kHogCells; ++k)
    desc[k * nOri + b] = plane[(std::size_t)(ay + hogCellDy(k)) * pitch + (ax + hogCellDx(k))];
}

// Float to int by truncation, saturating at the int range and giving 0 for
// NaN (the device conversion), so that a NaN confidence is a defined value.
VEMO_INLINE int truncateToInt(float f) {
  if (!(f == f)) return 0;
  if (f >= 2147483648.0f) return 2147483647;
  if (f <= -2147483648.0f) return (-2147483647 - 1);
  return (int)f;
}

// The point is too weak to be matched: its confidence, truncated to an
// integer, lies below an eighth of the mean confidence.
VEMO_INLINE bool matchCornerRejects(float cornerness, float average) {
  return (double)truncateToInt(cornerness) < (double)average * 0.125;
}

// Energy test: the candidate is skipped when either energy exceeds twice the
// other (exactly twice passes). Doubling a float is exact, and where it
// overflows to infinity the double-precision comparison is false as well, so
// comparing in single precision gives the double-precision answer.
VEMO_INLINE bool matchEnergyRejects(float e1, float e2) { return (e2 > 2.0f * e1) | (e1 > 2.0f * e2); }

// Summed squared difference of the three colour planes between pixel i of
// image 1 and pixel j of image 2, in plane order.
VEMO_INLINE float matchColourDistance(const float* image1, const float* image2, std::size_t planeStride,
                                      std::size_t i, std::size_t j) {
  float c = 0.0f;
  for (int plane = 0; plane < 3; ++plane) {
    const float diff = image1[plane * planeStride + i] - image2[plane * planeStride + j];
    c += diff * diff;
  }
  return c;
}

// Squared Euclidean distance between the descriptor `desc` and that of
// candidate (x, y) in `hog2`: a chain of fused multiply-adds from 0, bins
// outer, cells inner.
//
// Every term is non-negative, so the partial sum never decreases. Once it
// reaches `bound` the candidate cannot improve a best or second best that is
// below `bound`, and the function returns the partial sum (>= bound) at the
// end of that bin. Below `bound` the value is the full distance.
//
// hogDistanceBin adds the nine cell terms of bin b to d; `centre` points at
// the candidate's pixel in plane b of hog2.
//
// hogDistanceTerm is one step of the chain: d + (q - v)^2, fused.
VEMO_INLINE float hogDistanceTerm(float q, float v, float d) {
  const float diff = q - v;
  return fmaf(diff, diff, d);
}

VEMO_INLINE float hogDistanceBin(const float* desc, const float* centre, int pitch, int nOri, int b, float d) {
  for (int k = 0; k < kHogCells; ++k)
    d = hogDistanceTerm(desc[k * nOri + b], centre[(long)hogCellDy(k) * pitch + hogCellDx(k)], d);
  return d;
}

VEMO_INLINE float hogDescriptorDistance(const float* desc, const float* hog2, std::size_t planeStride, int pitch,
                                        int nOri, int x, int y, float bound) {
  float d = 0.0f;
  const std::size_t centre = (std::size_t)y * pitch + x;
  for (int b = 0; b < nOri; ++b) {
    d = hogDistanceBin(desc, hog2 + (std::size_t)b * planeStride + centre, pitch, nOri, b, d);
    if (d >= bound) return d;
  }
  return d;
}

// One worker's best and second-best distance, with the best position.
struct MatchBest {
  float d1, d2;
  int x, y;
};

VEMO_INLINE MatchBest matchBestInit() {
  MatchBest m;
  m.d1 = kNoMatch;
  m.d2 = kNoMatch;
  m.x = 0;
  m.y = 0;
  return m;
}

// Strict comparisons: on a tie the earlier candidate stays best.
VEMO_INLINE void matchBestUpdate(MatchBest& m, float d, int x, int y) {
  if (d < m.d1) {
    m.d2 = m.d1;
    m.d1 = d;
    m.x = x;
    m.y = y;
  } else if (d < m.d2) {
    m.d2 = d;
  }
}

// The same column state whatever order a column's candidates come in: a tie
// with the best goes to the upper row, as the top-to-bottom walk gives it.
// d1 and d2 are then the smallest and second smallest distance of the column
// (a repeated value counting twice) and (x, y) the topmost position of d1.
VEMO_INLINE bool matchBestUpdateAnyOrder(MatchBest& m, float d, int x, int y) {
  if (d < m.d1 || (d == m.d1 && y < m.y)) {
    m.d2 = m.d1;
    m.d1 = d;
    m.x = x;
    m.y = y;
    return true;
  }
  if (d < m.d2) {
    m.d2 = d;
    return true;
  }
  return false;
}

// One candidate of the search: the two tests, then the distance, then the
// update. The distance stops early once it reaches the worker's second
// best, which leaves the outcome unchanged.
VEMO_INLINE bool matchAdmissible(float e1, const float* image1, const float* image2, const float* energy2,
                                 std::size_t planeStride, std::size_t query, std::size_t j) {
  return !matchEnergyRejects(e1, energy2[j]) &&
         !(matchColourDistance(image1, image2, planeStride, query, j) > kMatchColourLimit);
}

VEMO_INLINE void matchCandidate(MatchBest& m, const float* desc, float e1, const float* image1,
                                const float* image2, const float* energy2, const float* hog2,
                                std::size_t planeStride, int pitch, int nOri, std::size_t query, int x, int y) {
  const std::size_t j = (std::size_t)y * pitch + x;
  if (!matchAdmissible(e1, image1, image2, energy2, planeStride, query, j)) return;
  const float d = hogDescriptorDistance(desc, hog2, planeStride, pitch, nOri, x, y, m.d2);
  matchBestUpdate(m, d, x, y);
}

// Folding the workers' results into the point's result, in worker order.
//
// The best distance is the smallest d1. Among the workers holding it, the
// lowest-numbered one gives the position: that is the leftmost window
// column, and within the column the topmost row (the update keeps the first
// of equal distances). The second-best distance is the smallest of the
// winners' d2 and every other worker's d1. Workers whose d1 equals the best
// all count as winners, so when two columns tie for the best the second best
// is not the tied value but the smaller runner-up behind them.
struct MatchFold {
  float best;
  float second;
  int x, y;
  bool placed;
};

VEMO_INLINE MatchFold matchFoldInit(float best) {
  MatchFold f;
  f.best = best;
  f.second = kNoMatch;
  f.x = 0;
  f.y = 0;
  f.placed = false;
  return f;
}

// What a worker adds to the second best when the point's best is `best`.
VEMO_INLINE float matchFoldShare(const MatchBest& m, float best) { return m.d1 == best ? m.d2 : m.d1; }

VEMO_INLINE void matchFoldWorker(MatchFold& f, const MatchBest& m) {
  if (m.d1 == f.best) {
    if (!f.placed) {
      f.x = m.x;
      f.y = m.y;
      f.placed = true;
    }
    if (m.d2 < f.second) f.second = m.d2;
  } else if (m.d1 < f.second) {
    f.second = m.d1;
  }
}

}  // namespace vemo
