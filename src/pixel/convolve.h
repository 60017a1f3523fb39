// One output sample of the one-dimensional correlation
//   out(p) = sum_j mask[j] * in(p + j - length/2)
// under the two border rules of the device filters.
//
// Both functions see one line of the image: `line` points at its first
// sample, consecutive samples are `step` floats apart (1 along a row, the
// pitch down a column) and the line has `n` valid samples. The sum is a chain
// of fused multiply-adds in increasing tap order, starting from 0.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/sample.h"

namespace vemo {

// Side of the square thread block of every per-pixel launch.
constexpr int kBlockSize = 16;

// Longest mask that the tiled short-mask rule handles (lengths below 8).
constexpr int kSmallMaskLimit = 8;

// Samples of one line of a plane: position p at line[p * step].
struct StridedLine {
  const float* line;
  int step;
  VEMO_INLINE float operator()(int p) const { return line[p * step]; }
};

// Value that the tiled short-mask filter holds at tile entry t of the block
// starting at line position `blockStart` (a multiple of 16) for half-width h,
// the line's samples read through `line` (a functor of the position).
// The tile covers positions blockStart - h ... blockStart + 15 + h:
//  - centre entries hold their own sample, or, beyond the end of the line,
//    the last valid sample n - 1 (which is always in this block);
//  - trailing halo entries hold the next block's sample when it is valid,
//    otherwise the block's own last centre entry, i.e. the sample
//    min(blockStart + 15, n - 1) -- not the line's last sample when the next
//    block is partly valid;
//  - leading halo entries hold the previous block's sample, or sample 0 in
//    the first block.
template <class Line>
VEMO_INLINE float smallTileEntryOf(Line line, int n, int blockStart, int h, int t) {
  if (t < h) {  // leading halo
    const int p = blockStart - h + t;
    return p >= 0 ? line(p) : line(0);
  }
  const int p = blockStart + t - h;
  if (t >= h + kBlockSize) {  // trailing halo
    if (p < n) return line(p);
    const int last = blockStart + kBlockSize - 1;
    return line(last < n ? last : n - 1);
  }
  return line(p < n ? p : n - 1);  // centre
}

// The same for a line stored at `line`, samples `step` floats apart.
VEMO_INLINE float smallTileEntry(const float* line, int step, int n, int blockStart, int h, int t) {
  return smallTileEntryOf(StridedLine{line, step}, n, blockStart, h, t);
}

// Short-mask (length < 8) correlation at line position `pos`, emulating the
// shared-memory tile of a 16-wide block: the border rule depends on which
// block `pos` falls in (see smallTileEntryOf).
template <class Line>
VEMO_INLINE float convolveSmallOf(Line line, int n, int pos, const float* mask, int length) {
  const int h = length / 2;
  const int blockStart = (pos / kBlockSize) * kBlockSize;
  const int tx = pos - blockStart;
  float sum = 0.0f;
  for (int j = 0; j < length; ++j) sum = fmaf(mask[j], smallTileEntryOf(line, n, blockStart, h, tx + j), sum);
  return sum;
}

VEMO_INLINE float convolveSmallAt(const float* line, int step, int n, int pos, const float* mask, int length) {
  return convolveSmallOf(StridedLine{line, step}, n, pos, mask, length);
}

// Correlation at line position `pos` with samples taken through `sample`
// (a functor of the line position, which applies the border rule).
template <class Sample>
VEMO_INLINE float convolveTapsAt(Sample sample, int pos, const float* mask, int length) {
  const int h = length / 2;
  float sum = 0.0f;
  for (int j = 0; j < length; ++j) sum = fmaf(mask[j], sample(pos + j - h), sum);
  return sum;
}

// Samples of one line with clamp addressing: positions outside the line take
// the nearest edge sample, as a texture with clamp addressing and point
// filtering returns them.
struct ClampedLine {
  const float* line;
  int step, n;
  VEMO_INLINE float operator()(int p) const { return line[clampIndex(p, n) * step]; }
};

// Texture-path correlation at line position `pos`: samples outside the line
// take the nearest edge sample (clamp addressing). Tap j weights offset
// j - length/2; for even lengths only the `length` given taps are used.
VEMO_INLINE float convolveClampAt(const float* line, int step, int n, int pos,
                                  const float* mask, int length) {
  return convolveTapsAt(ClampedLine{line, step, n}, pos, mask, length);
}

// Full two-dimensional correlation at (x, y) with a row-major mask of
// mh rows and mw columns, clamp addressing in both directions.
VEMO_INLINE float convolve2dClampAt(const float* in, int height, int width, int pitch,
                                    const float* mask, int mh, int mw, int x, int y) {
  float sum = 0.0f;
  int t = 0;
  for (int dy = -(mh / 2); dy < mh - mh / 2; ++dy) {
    const float* row = in + clampIndex(y + dy, height) * pitch;
    for (int dx = -(mw / 2); dx < mw - mw / 2; ++dx, ++t)
      sum = fmaf(mask[t], row[clampIndex(x + dx, width)], sum);
  }
  return sum;
}

}  // namespace vemo
