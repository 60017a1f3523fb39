#include "backends/cpu/warp.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/warp.h"

namespace flowcore::cpu {

VEMO_CPU_CLONES void gWarpMotion(float* outarray, const float* u, const float* v, const float* src, const float* First,
                 int nChan, float* confidence, int height, int width, int pitch) {
  checkPlane("gWarpMotion", height, width, pitch);
  if (nChan < 1) refuseArguments("gWarpMotion: the image needs at least one channel, got " + std::to_string(nChan));
  VEMO_FOR_EACH_PIXEL(height, width, x, y) {
    warpMotionAt(outarray, src, First, confidence, height, width, pitch, u, v, nChan, x, y);
  }
}

}  // namespace flowcore::cpu
