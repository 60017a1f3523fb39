// One output row of the separable correlation passes (see convolve.cpp), for
// the loops that run them row by row. Samples whose taps all fall inside the
// line take a branch-free loop (the same chain of fused multiply-adds per
// pixel, vectorised across pixels); only the border pixels go through the
// per-pixel functions. Inlined into their callers, so that each
// instruction-set copy of a loop runs its own.
#pragma once

#include <cmath>
#include <cstddef>

#include "pixel/convolve.h"

namespace vemo::cpu {

// The chain of a mask of kLength taps for samples lo .. hi - 1, each held in
// registers from its first tap to its store.
template <int kLength, class At>
inline __attribute__((always_inline)) void chainRun(float* __restrict out, int lo, int hi, const float* mask, At at) {
  float m[kLength];
  for (int j = 0; j < kLength; ++j) m[j] = mask[j];
  for (int x = lo; x < hi; ++x) {
    float s = fmaf(m[0], at(x, 0), 0.0f);
    for (int j = 1; j < kLength; ++j) s = fmaf(m[j], at(x, j), s);
    out[x] = s;
  }
}

// Samples lo .. hi - 1 of a pass whose taps all lie inside: out[x] is the
// chain over the taps read at `at(x, j)`. The masks of three, five and seven
// taps (gradients, derivatives, box means) keep each chain in registers;
// other lengths go tap by tap over the run, with the same chains.
template <class At>
inline __attribute__((always_inline)) void insideRun(float* __restrict out, int lo, int hi, const float* mask,
                                                    int length, At at) {
  switch (length) {
    case 3: return chainRun<3>(out, lo, hi, mask, at);
    case 5: return chainRun<5>(out, lo, hi, mask, at);
    case 7: return chainRun<7>(out, lo, hi, mask, at);
    default: break;
  }
  // The first tap starts each chain from 0, as the per-pixel sum does.
  for (int x = lo; x < hi; ++x) out[x] = fmaf(mask[0], at(x, 0), 0.0f);
  for (int j = 1; j < length; ++j) {
    const float m = mask[j];
    for (int x = lo; x < hi; ++x) out[x] = fmaf(m, at(x, j), out[x]);
  }
}

// out[0 .. width) = the horizontal pass over `row`, tiled short-mask rule or
// clamp-to-edge. `out` must not alias `row`.
inline __attribute__((always_inline)) void passRowX(float* __restrict out, const float* __restrict row, int width,
                                                   const float* mask, int length, bool tiled) {
  const int h = length / 2;
  const int lo = h < width ? h : width;                                          // first pixel with all taps inside
  const int hi = width - (length - 1 - h) > lo ? width - (length - 1 - h) : lo;  // one past the last
  auto border = [&](int x) {
    out[x] = tiled ? convolveSmallAt(row, 1, width, x, mask, length) : convolveClampAt(row, 1, width, x, mask, length);
  };
  for (int x = 0; x < lo; ++x) border(x);
  for (int x = hi; x < width; ++x) border(x);
  const float* start = row - h;
  if (hi > lo) insideRun(out, lo, hi, mask, length, [start](int x, int j) { return start[x + j]; });
}

// Rows of a plane of `height` rows held from row `first` on, `stride` floats
// apart: a column read by its absolute row position.
struct HeldColumn {
  const float* rows;  // row `first`, column x
  int first;
  std::size_t stride;
  inline float operator()(int p) const { return rows[(p - first) * stride]; }
};

// The same with clamp addressing: positions outside the plane read its edge
// row.
struct ClampedColumn {
  HeldColumn column;
  int n;
  inline float operator()(int p) const { return column(clampIndex(p, n)); }
};

// out[0 .. width) = row y of the vertical pass over a plane of `height` rows,
// of which `rows` holds rows first, first + 1, ... (`stride` floats apart); it
// must hold every row within length / 2 of y that lies inside the plane.
// Tiled short-mask rule or clamp-to-edge. `out` must not alias `rows`.
inline __attribute__((always_inline)) void passRowY(float* __restrict out, const float* __restrict rows, int first,
                                                   std::size_t stride, int height, int width, const float* mask,
                                                   int length, bool tiled, int y) {
  const int h = length / 2;
  if (y - h >= 0 && y + (length - 1 - h) < height) {
    const float* top = rows + (y - h - first) * stride;
    insideRun(out, 0, width, mask, length, [top, stride](int x, int j) { return top[j * stride + x]; });
    return;
  }
  for (int x = 0; x < width; ++x) {
    const HeldColumn column{rows + x, first, stride};
    out[x] = tiled ? convolveSmallOf(column, height, y, mask, length)
                   : convolveTapsAt(ClampedColumn{column, height}, y, mask, length);
  }
}

}  // namespace vemo::cpu
