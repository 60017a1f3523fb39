// Test helpers of the matching stage: pitched planes like device images and
// textured frames that the descriptors can lock onto.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

#include "image/synthetic.h"

namespace flowcore::match_testing {

// nPlanes planes of height x pitch floats; padding columns hold NaN so that a
// stage reading them as data shows up.
struct Frame {
  int height, width, pitch, planes;
  std::vector<float> data;

  Frame(int h, int w, int p, int n, float value = 0.0f)
      : height(h), width(w), pitch(p), planes(n), data((std::size_t)h * p * n, std::nanf("")) {
    for (int c = 0; c < n; ++c)
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) at(x, y, c) = value;
  }
  std::size_t plane() const { return (std::size_t)pitch * height; }
  float& at(int x, int y, int c = 0) { return data[c * plane() + (std::size_t)y * pitch + x]; }
  float at(int x, int y, int c = 0) const { return data[c * plane() + (std::size_t)y * pitch + x]; }
  float* ptr(int c = 0) { return data.data() + c * plane(); }
  const float* ptr(int c = 0) const { return data.data() + c * plane(); }
};

// Frame whose pixel (x, y) shows the smooth multi-scale texture of `seed` at
// (x - shiftX, y - shiftY): the content of an unshifted frame moved by
// (shiftX, shiftY), exactly.
inline Frame texturedFrame(int h, int w, int p, unsigned seed, int shiftX = 0, int shiftY = 0) {
  const NSynthetic::CTexture texture(seed);
  Frame f(h, w, p, 3);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) f.at(x, y, c) = (float)texture.at(x - shiftX, y - shiftY, c);
  return f;
}

}  // namespace flowcore::match_testing
