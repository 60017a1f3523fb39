// The CPU executor of per-pixel functions: one call per pixel of a
// height x width region, rows split over OpenMP threads. Every pixel is
// computed by the same function whatever thread runs it, so results do not
// depend on the thread count.
#pragma once

#include "backends/cpu/row_parallel.h"
#include <iostream>
#include <stdexcept>
#include <string>

// Row loops of the CPU stages are compiled twice on x86-64 with GCC: once
// for the baseline and once for x86-64-v3 (AVX2 + FMA), chosen at load time.
// The FMA clone turns every fmaf into one instruction and lets the loops
// vectorise; results are the same bit for bit, since a fused multiply-add
// rounds once either way and the per-pixel order of operations is fixed.
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && !defined(__SANITIZE_ADDRESS__)
#define VEMO_CPU_CLONES __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define VEMO_CPU_CLONES
#endif

namespace flowcore::cpu {

template <class F>
void forEachPixel(int height, int width, F&& f) {
#pragma omp parallel for schedule(static) if (static_cast<long>(height) * width >= kParallelMinPixels)
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) f(x, y);
}

// The same loop written in place, for functions marked VEMO_CPU_CLONES: the
// OpenMP body is outlined from the marked function and so is compiled for
// both targets (a lambda passed to forEachPixel is outlined from the template
// and would get the baseline target only).
// Images below kParallelMinPixels run on the calling thread.
#define VEMO_FOR_EACH_PIXEL(height, width, x, y)                                                   \
  if (const bool vemoWorthThreads_ =                                                               \
          static_cast<long>(height) * (width) >= ::flowcore::cpu::kParallelMinPixels;                  \
      true)                                                                                        \
  _Pragma("omp parallel for schedule(static) if (vemoWorthThreads_)")                             \
  for (int y = 0; y < (height); ++y)                \
    for (int x = 0; x < (width); ++x)

// Argument errors of the CPU stages: message on standard error, then throw.
[[noreturn]] inline void refuseArguments(const std::string& message) {
  std::cerr << message << std::endl;
  throw std::invalid_argument(message);
}

inline void checkPlane(const char* stage, int height, int width, int pitch) {
  if (height < 1 || width < 1 || pitch < width)
    refuseArguments(std::string(stage) + ": invalid plane size " + std::to_string(width) + "x" +
                    std::to_string(height) + " with pitch " + std::to_string(pitch));
}

}  // namespace flowcore::cpu
