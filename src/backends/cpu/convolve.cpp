#include "backends/cpu/convolve.h"

#include "backends/cpu/row_parallel.h"
#include <cstring>
#include <vector>

#include "backends/cpu/convolve_rows.h"
#include "backends/cpu/pixel_loop.h"
#include "method/filter_masks.h"
#include "pixel/convolve.h"

namespace vemo::cpu {

namespace {

void checkMask(const char* stage, const float* mask, int length) {
  if (!mask || length < 1 || length > kMaxMaskLength)
    refuseArguments(std::string(stage) + ": mask length " + std::to_string(length) +
                    " outside 1.." + std::to_string(kMaxMaskLength));
}

// Copy of the height x width data of a pitched plane (same pitch), so that a
// pass may write over its own input.
std::vector<float> snapshot(const float* in, int height, int width, int pitch) {
  std::vector<float> copy((size_t)height * pitch, 0.0f);
  for (int y = 0; y < height; ++y)
    std::memcpy(copy.data() + (size_t)y * pitch, in + (size_t)y * pitch, sizeof(float) * width);
  return copy;
}

// Row and column passes (backends/cpu/convolve_rows.h). `in` must not alias
// `out`.
VEMO_CPU_CLONES void passXRows(float* __restrict out, const float* __restrict in, int width, int pitch,
                               const float* mask, int length, bool tiled, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    passRowX(out + (size_t)y * pitch, in + (size_t)y * pitch, width, mask, length, tiled);
}

VEMO_CPU_CLONES void passYRows(float* __restrict out, const float* __restrict in, int height, int width, int pitch,
                               const float* mask, int length, bool tiled, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    passRowY(out + (size_t)y * pitch, in, 0, pitch, height, width, mask, length, tiled, y);
}

void passX(float* out, const float* in, int height, int width, int pitch, const float* mask, int length, bool tiled) {
  parallelRows(height, width, [&](int y0, int y1) { passXRows(out, in, width, pitch, mask, length, tiled, y0, y1); });
}

void passY(float* out, const float* in, int height, int width, int pitch, const float* mask, int length, bool tiled) {
  parallelRows(height, width,
               [&](int y0, int y1) { passYRows(out, in, height, width, pitch, mask, length, tiled, y0, y1); });
}

void clampPassX(float* out, const float* in, int height, int width, int pitch, const float* mask, int length) {
  passX(out, in, height, width, pitch, mask, length, false);
}

void clampPassY(float* out, const float* in, int height, int width, int pitch, const float* mask, int length) {
  passY(out, in, height, width, pitch, mask, length, false);
}

}  // namespace

void gConvolveX(float* out, const float* in, int height, int width, int pitch, const float* mask, int length) {
  checkPlane("gConvolveX", height, width, pitch);
  checkMask("gConvolveX", mask, length);
  if (length < kSmallMaskLimit && out != in) {
    passX(out, in, height, width, pitch, mask, length, true);
    return;
  }
  if (out != in) {
    clampPassX(out, in, height, width, pitch, mask, length);
    return;
  }
  const std::vector<float> src = snapshot(in, height, width, pitch);
  clampPassX(out, src.data(), height, width, pitch, mask, length);
}

void gConvolveY(float* out, const float* in, int height, int width, int pitch, const float* mask, int length) {
  checkPlane("gConvolveY", height, width, pitch);
  checkMask("gConvolveY", mask, length);
  if (length < kSmallMaskLimit && out != in) {
    passY(out, in, height, width, pitch, mask, length, true);
    return;
  }
  if (out != in) {
    clampPassY(out, in, height, width, pitch, mask, length);
    return;
  }
  const std::vector<float> src = snapshot(in, height, width, pitch);
  clampPassY(out, src.data(), height, width, pitch, mask, length);
}

void gGaussianFilter(float* out, const float* in, int height, int width, int pitch, float sigma) {
  checkPlane("gGaussianFilter", height, width, pitch);
  int length = 0;
  const std::vector<float> mask = GaussianFilterCreate(sigma, length);
  checkMask("gGaussianFilter", mask.data(), length);
  // The horizontal pass writes a scratch plane, so in == out needs no copy.
  std::vector<float> tmp((size_t)height * pitch, 0.0f);
  clampPassX(tmp.data(), in, height, width, pitch, mask.data(), length);
  clampPassY(out, tmp.data(), height, width, pitch, mask.data(), length);
}

void gGaussianDerivativeFilter(float* out, const float* in, int height, int width, float sigma, char dir) {
  checkPlane("gGaussianDerivativeFilter", height, width, width);
  int length = 0;
  const std::vector<float> mask = GaussianDerivativeFilterCreate(sigma, length);
  checkMask("gGaussianDerivativeFilter", mask.data(), length);
  const std::vector<float> src = snapshot(in, height, width, width);
  if (dir == 'x')
    clampPassX(out, src.data(), height, width, width, mask.data(), length);
  else
    clampPassY(out, src.data(), height, width, width, mask.data(), length);
}

void Convolve2d(float* out, int out_height, int out_width, const float* in, int in_height, int in_width,
                const float* filter, int filt_height, int filt_width) {
  if (out_height != in_height || out_width != in_width)
    refuseArguments("Convolve2d: output " + std::to_string(out_width) + "x" + std::to_string(out_height) +
                    " and input " + std::to_string(in_width) + "x" + std::to_string(in_height) + " differ");
  checkPlane("Convolve2d", in_height, in_width, in_width);
  if (filt_height < 1 || filt_width < 1 || (long long)filt_height * filt_width >= kMaxMaskLength)
    refuseArguments("Convolve2d: filter of " + std::to_string(filt_width) + "x" + std::to_string(filt_height) +
                    " taps does not fit the mask store");
  const int h = in_height, w = in_width;
  if (filt_width == 1) {
    std::vector<float> tmp((size_t)h * w);
    clampPassX(tmp.data(), in, h, w, w, filter, filt_height);
    std::vector<float> res((size_t)h * w);
    clampPassY(res.data(), tmp.data(), h, w, w, filter, filt_height);
    std::memcpy(out, res.data(), sizeof(float) * res.size());
    return;
  }
  const std::vector<float> src = snapshot(in, h, w, w);
  const float* s = src.data();
  forEachPixel(h, w, [&](int x, int y) { out[y * w + x] = convolve2dClampAt(s, h, w, w, filter, filt_height, filt_width, x, y); });
}

}  // namespace vemo::cpu
