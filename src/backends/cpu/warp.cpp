#include "backends/cpu/warp.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/warp.h"

namespace vemo::cpu {

namespace {

VEMO_CPU_CLONES void warpRows(float* outarray, const float* u, const float* v, const float* src, const float* First,
                              int nChan, float* confidence, int height, int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x)
      warpMotionAt(outarray, src, First, confidence, height, width, pitch, u, v, nChan, x, y);
}

}  // namespace

void gWarpMotion(float* outarray, const float* u, const float* v, const float* src, const float* First, int nChan,
                 float* confidence, int height, int width, int pitch) {
  checkPlane("gWarpMotion", height, width, pitch);
  if (nChan < 1) refuseArguments("gWarpMotion: the image needs at least one channel, got " + std::to_string(nChan));
  parallelRows(height, width, [&](int y0, int y1) {
    warpRows(outarray, u, v, src, First, nChan, confidence, height, width, pitch, y0, y1);
  });
}

}  // namespace vemo::cpu
