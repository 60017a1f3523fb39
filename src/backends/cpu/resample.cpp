#include "backends/cpu/resample.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/resample.h"

namespace vemo::cpu {

void downsample(const float* arr, int height, int width, int pitch,
                float* out, int newheight, int newwidth, int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  if (conf) {
    forEachPixel(newheight, newwidth, [=](int x, int y) {
      out[y * newpitch + x] = downsampleWeightedAt(arr, height, width, pitch, newheight, newwidth, conf, x, y);
    });
  } else {
    forEachPixel(newheight, newwidth, [=](int x, int y) {
      out[y * newpitch + x] = downsampleAt(arr, height, width, pitch, newheight, newwidth, x, y);
    });
  }
}

void gInterpolate(float* outarray, int oheight, int owidth, int opitch,
                  const float* src, int height, int width, int pitch, float scaleFactor) {
  checkPlane("gInterpolate (source)", height, width, pitch);
  checkPlane("gInterpolate (target)", oheight, owidth, opitch);
  forEachPixel(oheight, owidth, [=](int x, int y) {
    outarray[y * opitch + x] = interpolateAt(src, height, width, pitch, scaleFactor, x, y);
  });
}

}  // namespace vemo::cpu
