// Helpers for tests of the solver stages: planes in a backend filled from
// host-side functions, and the host reference of a pitched plane.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "backends/backend.h"

namespace vemo::testing {

// An image of `planes` planes of height x width in backend memory, zero
// outside the data (padding included).
struct TestImage {
  TestImage(Backend& backend, int height, int width, int planes = 1)
      : height(height), width(width), pitch(backend.pitchFor(width)), planes(planes),
        buffer(backend.allocate(static_cast<std::size_t>(planes) * pitch * height)) {
    backend.clear(buffer.data(), buffer.floats());
  }
  std::size_t plane() const { return static_cast<std::size_t>(pitch) * height; }
  float* data(int k = 0) const { return buffer.data() + k * plane(); }
  float& at(int x, int y, int k = 0) const { return buffer.data()[k * plane() + static_cast<std::size_t>(y) * pitch + x]; }
  void fill(const std::function<float(int x, int y, int k)>& f) const {
    for (int k = 0; k < planes; ++k)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) at(x, y, k) = f(x, y, k);
  }
  // Whether every padding column of every plane still holds exactly zero.
  bool paddingIsZero() const {
    for (int k = 0; k < planes; ++k)
      for (int y = 0; y < height; ++y)
        for (int x = width; x < pitch; ++x)
          if (at(x, y, k) != 0.0f) return false;
    return true;
  }
  // The data of all planes, row after row, without padding.
  std::vector<float> dense() const {
    std::vector<float> out;
    for (int k = 0; k < planes; ++k)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) out.push_back(at(x, y, k));
    return out;
  }
  int height, width, pitch, planes;
  Buffer buffer;
};

inline std::function<float(int, int, int)> uniformNoise(unsigned seed, float lo, float hi) {
  auto engine = std::make_shared<std::mt19937>(seed);
  return [engine, lo, hi](int, int, int) { return std::uniform_real_distribution<float>(lo, hi)(*engine); };
}

}  // namespace vemo::testing
