#include "backends/cpu/resample.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/resample.h"

namespace vemo::cpu {

VEMO_CPU_CLONES void downsample(const float* arr, int height, int width, int pitch,
                float* out, int newheight, int newwidth, int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  if (conf) {
    VEMO_FOR_EACH_PIXEL(newheight, newwidth, x, y) {
      out[y * newpitch + x] = downsampleWeightedAt(arr, height, width, pitch, newheight, newwidth, conf, x, y);
    }
  } else {
    VEMO_FOR_EACH_PIXEL(newheight, newwidth, x, y) {
      out[y * newpitch + x] = downsampleAt(arr, height, width, pitch, newheight, newwidth, x, y);
    }
  }
}

VEMO_CPU_CLONES void gInterpolate(float* outarray, int oheight, int owidth, int opitch,
                  const float* src, int height, int width, int pitch, float scaleFactor) {
  checkPlane("gInterpolate (source)", height, width, pitch);
  checkPlane("gInterpolate (target)", oheight, owidth, opitch);
  VEMO_FOR_EACH_PIXEL(oheight, owidth, x, y) {
    outarray[y * opitch + x] = interpolateAt(src, height, width, pitch, scaleFactor, x, y);
  }
}

}  // namespace vemo::cpu
