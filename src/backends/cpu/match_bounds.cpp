#include "backends/cpu/match_bounds.h"

#include <cmath>
#include <cstddef>

#include "backends/cpu/row_parallel.h"
#include "pixel/hog.h"
#include "pixel/hog_match.h"

namespace vemo::cpu {

std::vector<float> descriptorNorms(const float* hog, int height, int width, int pitch) {
  const std::size_t plane = (std::size_t)pitch * height;
  std::vector<float> norms(plane, 0.0f);
  // Squared norm of each pixel's histogram, then the sum over the nine cells.
  std::vector<double> squares(plane, 0.0);
  parallelRows(height, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      double* row = squares.data() + (std::size_t)y * pitch;
      for (int bin = 0; bin < kHogBins; ++bin) {
        const float* in = hog + bin * plane + (std::size_t)y * pitch;
        for (int x = 0; x < width; ++x) row[x] += (double)in[x] * in[x];
      }
    }
  });
  parallelRows(height, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y)
      for (int x = 0; x < width; ++x) {
        if (!hogDescriptorInside(x, y, height, width)) continue;
        double sum = 0.0;
        for (int k = 0; k < kHogCells; ++k)
          sum += squares[(std::size_t)(y + hogCellDy(k)) * pitch + x + hogCellDx(k)];
        norms[(std::size_t)y * pitch + x] = (float)std::sqrt(sum);
      }
  });
  return norms;
}

float descriptorNorm(const float* desc) {
  double sum = 0.0;
  for (int i = 0; i < kHogCells * kHogBins; ++i) sum += (double)desc[i] * desc[i];
  return (float)std::sqrt(sum);
}

}  // namespace vemo::cpu
