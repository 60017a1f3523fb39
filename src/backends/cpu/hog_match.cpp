#include "backends/cpu/hog_match.h"

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

// One point of the search. Column c of the window is the column of worker c
// of the 256-wide layout; walking the window row by row and updating each
// column's own best/second best in turn gives every column the same sequence
// of updates as walking it top to bottom, while reading memory in rows.
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
  MatchBest column[kMatchWorkers];
  const int columns = w.x1 >= w.x0 ? w.x1 - w.x0 + 1 : 0;
  for (int c = 0; c < columns; ++c) column[c] = matchBestInit();
  for (int y = w.y0; y <= w.y1; ++y)
    for (int c = 0; c < columns; ++c)
      matchCandidate(column[c], desc, e1, a.Image1, a.Image2, a.Energy2, a.HOG2, plane, pitch, kHogBins, query,
                     w.x0 + c, y);

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
