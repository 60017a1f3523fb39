// Test helpers: host planes laid out like device images, with a padded pitch
// whose padding holds a NaN sentinel so that a stage reading the padding as
// data, or writing into it, shows up.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace vemo::testing_util {

struct Planes {
  int height, width, pitch, count;
  std::vector<float> data;

  Planes(int h, int w, int p, int n = 1, float value = 0.0f)
      : height(h), width(w), pitch(p), count(n), data((size_t)h * p * n, std::nanf("")) {
    for (int c = 0; c < n; ++c)
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) at(x, y, c) = value;
  }
  float& at(int x, int y, int c = 0) { return data[((size_t)c * height + y) * pitch + x]; }
  float at(int x, int y, int c = 0) const { return data[((size_t)c * height + y) * pitch + x]; }
  float* ptr(int c = 0) { return data.data() + (size_t)c * height * pitch; }
  const float* ptr(int c = 0) const { return data.data() + (size_t)c * height * pitch; }

  void fillRandom(unsigned seed, float lo = 0.0f, float hi = 255.0f) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    for (int c = 0; c < count; ++c)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) at(x, y, c) = d(rng);
  }
  template <class F>
  void fill(F f) {
    for (int c = 0; c < count; ++c)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) at(x, y, c) = f(x, y, c);
  }
  // True when every padding element still holds the sentinel NaN.
  bool paddingIntact() const {
    for (int r = 0; r < height * count; ++r)
      for (int x = width; x < pitch; ++x)
        if (!std::isnan(data[(size_t)r * pitch + x])) return false;
    return true;
  }
};

inline bool sameBits(float a, float b) {
  uint32_t ia, ib;
  std::memcpy(&ia, &a, 4);
  std::memcpy(&ib, &b, 4);
  return ia == ib;
}

}  // namespace vemo::testing_util
