// CPU executor of the exhaustive descriptor search.
#pragma once

#include "pixel/hog_match.h"

namespace vemo::cpu {

// For each of the n points (mx[p], my[p]) of frame 1 finds the pixel of
// frame 2 within +-radius pixels (1 to 80; at least 12 pixels inside the
// border)
// whose HOG descriptor is closest, among candidates that pass the energy and
// colour tests. Writes the position to match_x/match_y[p], the best distance
// to match_dist[p] and the second-best to match_dist2[p]; an empty search
// gives (0, 0) and 1e9 for both. Points are skipped, with nothing written,
// when checkCorner is non-zero and their Cornerness is too low, when a
// coordinate is 0, or when their descriptor would leave the frame.
//
// Image1/Image2: three colour planes; HOG1/HOG2: nOri = 15 planes;
// Cornerness, Energy1, Energy2: one plane; all with row stride `pitch` and
// plane stride pitch * height. When distances tie, the position is the
// leftmost column of the window holding the best distance, and within that
// column the topmost row; the result does not depend on the thread count.
void HOGMatch(const float* Image1, const float* Image2, const float* HOG1, const float* HOG2,
              const float* Cornerness, int checkCorner, const float* Energy1, const float* Energy2, float average,
              int* match_x, int* match_y, float* match_dist, float* match_dist2, const int* mx, const int* my, int n,
              int height, int width, int pitch, int radius = kMatchRadius);

}  // namespace vemo::cpu
