// The CPU executor of per-pixel functions: one call per pixel of a
// height x width region, rows split over the backend's threads. Every pixel
// is computed by the same function whatever thread runs it, so results do
// not depend on the thread count.
//
// The function is compiled for the baseline target only; hot loops are
// written as row-range functions marked VEMO_CPU_CLONES (clones.h) and
// handed to parallelRows.
#pragma once

#include <stdexcept>
#include <string>

#include "backends/cpu/clones.h"
#include "common/diagnostics.h"
#include "backends/cpu/row_parallel.h"

namespace vemo::cpu {

template <class F>
void forEachPixel(int height, int width, F&& f) {
  parallelRows(height, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y)
      for (int x = 0; x < width; ++x) f(x, y);
  });
}

// Argument errors of the CPU stages: message on standard error, then throw.
[[noreturn]] inline void refuseArguments(const std::string& message) {
  reportf(stderr, "%s\n", message.c_str());
  throw std::invalid_argument(message);
}

inline void checkPlane(const char* stage, int height, int width, int pitch) {
  if (height < 1 || width < 1 || pitch < width)
    refuseArguments(std::string(stage) + ": invalid plane size " + std::to_string(width) + "x" +
                    std::to_string(height) + " with pitch " + std::to_string(pitch));
}

}  // namespace vemo::cpu
