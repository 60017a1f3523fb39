// Colour coding of flow fields. The wheel covers the half circle of
// h = angle / 2 in six sectors: red -> magenta -> dimmed blue -> cyan ->
// green (each pi/8 wide) -> yellow -> red (each pi/4 wide). Brightness is the
// vector length, saturating at 1.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "driver/optic_flow.h"
#include "image/exceptions.h"
#include "math/constants.h"

namespace {

struct Sector {
  double lower, width;  // in units of pi
  int start[3], end[3];
};

// Bounds as multiples of pi; widened to double before scaling.
const Sector kSectors[6] = {
    {0.0, 1.0 / 8, {255, 0, 0}, {255, 0, 255}},
    {1.0 / 8, 1.0 / 8, {255, 0, 255}, {64, 64, 255}},
    {2.0 / 8, 1.0 / 8, {64, 64, 255}, {0, 255, 255}},
    {3.0 / 8, 1.0 / 8, {0, 255, 255}, {0, 255, 0}},
    {4.0 / 8, 2.0 / 8, {0, 255, 0}, {255, 255, 0}},
    {6.0 / 8, 2.0 / 8, {255, 255, 0}, {255, 0, 0}},
};

float channel(int start, int end, float t, float m) {
  const double value = ((1.0 - t) * start + static_cast<double>(t) * end) * m;
  const float truncated = static_cast<float>(static_cast<int>(value));
  return std::min(255.0f, std::max(0.0f, truncated));
}

}  // namespace

void COpticFlow::cartesianToRGB(float x, float y, float& r, float& g, float& b) {
  const float pi = NMath::Pi;
  float phi;
  if (x == 0) {
    phi = (y >= 0) ? pi / 2 : static_cast<float>(1.5 * pi);
  } else if (x > 0) {
    phi = (y >= 0) ? atanf(y / x) : static_cast<float>(2 * pi + std::atan(static_cast<double>(y / x)));
  } else {
    phi = static_cast<float>(std::atan(static_cast<double>(y / x)) + pi);
  }
  const float h = phi * 0.5f;
  const float m = std::min(1.0f, sqrtf(x * x + y * y));

  // A NaN or infinite component matches no sector: black.
  r = g = b = 0;
  const double piD = pi;
  for (int s = 0; s < 6; ++s) {
    const Sector& sector = kSectors[s];
    const double lower = sector.lower * piD;
    const double upper = (sector.lower + sector.width) * piD;
    const bool inside = (s == 5) ? (h >= lower && h <= upper) : (h >= lower && h < upper);
    if (!inside) continue;
    const float t = static_cast<float>((h - lower) / (sector.width * piD));
    r = channel(sector.start[0], sector.end[0], t, m);
    g = channel(sector.start[1], sector.end[1], t, m);
    b = channel(sector.start[2], sector.end[2], t, m);
    return;
  }
}

void COpticFlow::flowToImage(CTensor<float>& flow, CTensor<float>& image, float factor) {
  const int width = flow.xSize;
  const int height = flow.ySize;
  const size_t pixels = flow.planeSize();
  if (pixels > 0 && (flow.zSize < 2 || flow.data == nullptr)) {
    std::fprintf(stderr,
                 "Exception ETensorIncompatibleSize: a flow field needs two planes, got %d x %d x "
                 "%d\n",
                 width, height, flow.zSize);
    throw ETensorIncompatibleSize();
  }
  // 0.3535533905932738 = 1 / (2 sqrt 2).
  const float s = static_cast<float>(0.3535533905932738 / factor);
  CTensor<float> result(width, height, 3);
  const float* u = flow.data;
  const float* v = flow.data + pixels;
  float* red = result.data;
  float* green = result.data + pixels;
  float* blue = result.data + 2 * pixels;
  const long n = static_cast<long>(pixels);
#pragma omp parallel for schedule(static)
  for (long i = 0; i < n; ++i) cartesianToRGB(s * u[i], s * v[i], red[i], green[i], blue[i]);

  // Keep the sizes even for a field without pixels (the copy assignment
  // would collapse them to 0 x 0 x 0).
  delete[] image.data;
  image.data = result.data;
  image.xSize = result.xSize;
  image.ySize = result.ySize;
  image.zSize = result.zSize;
  result.data = nullptr;
}
