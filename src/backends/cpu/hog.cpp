#include "backends/cpu/hog.h"

#include <string>
#include <vector>

#include "backends/cpu/clones.h"
#include "backends/cpu/convolve.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/hog.h"

namespace vemo::cpu {

namespace {

void checkBins(const char* stage, int nOri) {
  if (nOri < 1) refuseArguments(std::string(stage) + ": the number of orientation bins must be positive");
}

VEMO_CPU_CLONES void accumulateRows(const float* gx, const float* gy, float* field, int nOri, std::size_t plane,
                                    int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) hogAccumulateAt(gx, gy, field, nOri, plane, (std::size_t)y * pitch + x);
}

// A bin at a time along each row, so that the loop over the pixels
// vectorises; every bin of a pixel gets the same arithmetic as pixel by
// pixel.
VEMO_CPU_CLONES void smoothBinRows(const float* field, float* hog, int nOri, std::size_t plane, int width, int pitch,
                                   int y0, int y1) {
  for (int y = y0; y < y1; ++y) {
    const std::size_t o = (std::size_t)y * pitch;
    for (int b = 0; b < nOri; ++b) {
#pragma GCC ivdep
      for (std::size_t i = o; i < o + width; ++i)
        hogSmoothBinAt(field, hog, nOri, plane, i, b, kHogBinSmoothing[0], kHogBinSmoothing[1], kHogBinSmoothing[2]);
    }
  }
}

}  // namespace

void gComputeHOG(const float* image, float* hog, int nChannels, int nOri, int height, int width, int pitch) {
  checkPlane("gComputeHOG", height, width, pitch);
  checkBins("gComputeHOG", nOri);
  if (nChannels < 1) refuseArguments("gComputeHOG: an image needs at least one channel");
  const std::size_t plane = (std::size_t)pitch * height;
  std::vector<float> dx(plane, 0.0f), dy(plane, 0.0f), binned(plane * nOri, 0.0f);
  float* const field = binned.data();

  for (int c = 0; c < nChannels; ++c) {
    const float* channel = image + c * plane;
    gConvolveX(dx.data(), channel, height, width, pitch, kHogGradientMask, 3);
    gConvolveY(dy.data(), channel, height, width, pitch, kHogGradientMask, 3);
    const float* gx = dx.data();
    const float* gy = dy.data();
    parallelRows(height, width, [=](int y0, int y1) {
      accumulateRows(gx, gy, field, nOri, plane, width, pitch, y0, y1);
    });
  }

  parallelRows(height, width,
               [=](int y0, int y1) { smoothBinRows(field, hog, nOri, plane, width, pitch, y0, y1); });

  // 7 x 7 box mean of every bin: along x into the scratch field, back along y.
  float box[kHogPoolLength];
  for (float& tap : box) tap = kHogPoolTap;
  for (int b = 0; b < nOri; ++b) {
    float* out = hog + b * plane;
    float* tmp = field + b * plane;
    gConvolveX(tmp, out, height, width, pitch, box, kHogPoolLength);
    gConvolveY(out, tmp, height, width, pitch, box, kHogPoolLength);
  }
}

void computeEnergy(const float* hog, float* Energy, int height, int width, int pitch, int nOri) {
  checkPlane("computeEnergy", height, width, pitch);
  checkBins("computeEnergy", nOri);
  const std::size_t plane = (std::size_t)pitch * height;
  forEachPixel(height, width, [=](int x, int y) {
    const std::size_t i = (std::size_t)y * pitch + x;
    Energy[i] = hogEnergyAt(hog, nOri, plane, i);
  });
}

}  // namespace vemo::cpu
