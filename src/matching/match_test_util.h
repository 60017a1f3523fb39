// Test helpers of the matching stage: pitched planes like device images and
// smooth random colour texture that the descriptors can lock onto.
#pragma once

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace vemo::match_testing {

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

// Colour texture of blobs a few pixels wide, values 0..255, defined on the
// whole plane (x, y) so that shifted copies agree exactly.
inline float texture(int x, int y, int c, unsigned seed) {
  // Sum of a few hashed lattice bumps; deterministic in (x, y, c, seed).
  auto hash = [seed](int i, int j, int k) {
    unsigned h = (unsigned)i * 73856093u ^ (unsigned)j * 19349663u ^ (unsigned)k * 83492791u ^ seed * 2654435761u;
    h ^= h >> 13;
    h *= 0x5bd1e995u;
    h ^= h >> 15;
    return (float)(h & 0xffff) / 65535.0f;
  };
  const int cell = 5;
  const int gx = (int)std::floor((float)x / cell), gy = (int)std::floor((float)y / cell);
  float v = 0.0f;
  for (int j = gy - 1; j <= gy + 1; ++j)
    for (int i = gx - 1; i <= gx + 1; ++i) {
      const float cx = i * cell + hash(i, j, 7) * cell, cy = j * cell + hash(i, j, 11) * cell;
      const float r2 = (x - cx) * (x - cx) + (y - cy) * (y - cy);
      v += hash(i, j, c) * std::exp(-r2 / 8.0f);
    }
  return std::fmin(255.0f, 40.0f + 150.0f * v);
}

// Frame whose pixel (x, y) shows texture point (x - shiftX, y - shiftY): the
// content of an unshifted frame moved by (shiftX, shiftY).
inline Frame texturedFrame(int h, int w, int p, unsigned seed, int shiftX = 0, int shiftY = 0) {
  Frame f(h, w, p, 3);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) f.at(x, y, c) = texture(x - shiftX, y - shiftY, c, seed);
  return f;
}

}  // namespace vemo::match_testing
