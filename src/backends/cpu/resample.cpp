#include "backends/cpu/resample.h"

#include "backends/cpu/row_parallel.h"
#include <vector>

#include "backends/cpu/pixel_loop.h"
#include "pixel/resample.h"

namespace flowcore::cpu {

// The footprint spans depend on x alone or y alone: the column spans are
// computed once per call and the row span once per row.
VEMO_CPU_CLONES void downsample(const float* arr, int height, int width, int pitch,
                                float* out, int newheight, int newwidth, int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  std::vector<AreaSpan> columns(newwidth);
  for (int x = 0; x < newwidth; ++x) columns[x] = areaSpan(width, newwidth, x);
  const AreaSpan* sx = columns.data();
  const float norm = areaNorm(height, width, newheight, newwidth);
#pragma omp parallel for schedule(static) if (static_cast<long>(height) * width >= kParallelMinPixels)
  for (int y = 0; y < newheight; ++y) {
    const AreaSpan sy = areaSpan(height, newheight, y);
    float* o = out + (size_t)y * newpitch;
    if (conf) {
      for (int x = 0; x < newwidth; ++x) o[x] = areaWeightedAverage(arr, conf, height, width, pitch, sx[x], sy);
    } else {
      for (int x = 0; x < newwidth; ++x) o[x] = areaAverage(arr, height, width, pitch, sx[x], sy, norm);
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

}  // namespace flowcore::cpu
