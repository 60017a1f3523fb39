#include "backends/cpu/resample.h"

#include <vector>

#include "backends/cpu/pixel_loop.h"
#include "pixel/resample.h"

namespace flowcore::cpu {

namespace {

VEMO_CPU_CLONES void downsampleRows(const float* arr, int height, int width, int pitch, float* out, int newheight,
                                    int newwidth, int newpitch, const float* conf, const AreaSpan* sx, float norm,
                                    int y0, int y1) {
  for (int y = y0; y < y1; ++y) {
    const AreaSpan sy = areaSpan(height, newheight, y);
    float* o = out + (size_t)y * newpitch;
    if (conf) {
      for (int x = 0; x < newwidth; ++x) o[x] = areaWeightedAverage(arr, conf, height, width, pitch, sx[x], sy);
    } else {
      for (int x = 0; x < newwidth; ++x) o[x] = areaAverage(arr, height, width, pitch, sx[x], sy, norm);
    }
  }
}

VEMO_CPU_CLONES void interpolateRows(float* outarray, int owidth, int opitch, const float* src, int height, int width,
                                     int pitch, float scaleFactor, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < owidth; ++x) outarray[y * opitch + x] = interpolateAt(src, height, width, pitch, scaleFactor, x, y);
}

}  // namespace

// The footprint spans depend on x alone or y alone: the column spans are
// computed once per call and the row span once per row. An output row reads
// about height / newheight source rows, which sets how rows are shared out.
void downsample(const float* arr, int height, int width, int pitch, float* out, int newheight, int newwidth,
                int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  std::vector<AreaSpan> columns(newwidth);
  for (int x = 0; x < newwidth; ++x) columns[x] = areaSpan(width, newwidth, x);
  const AreaSpan* sx = columns.data();
  const float norm = areaNorm(height, width, newheight, newwidth);
  const long rowWork = static_cast<long>(height) * width / newheight;
  parallelRows(newheight, static_cast<int>(rowWork < 0x7fffffffL ? rowWork : 0x7fffffffL), [&](int y0, int y1) {
    downsampleRows(arr, height, width, pitch, out, newheight, newwidth, newpitch, conf, sx, norm, y0, y1);
  });
}

void gInterpolate(float* outarray, int oheight, int owidth, int opitch, const float* src, int height, int width,
                  int pitch, float scaleFactor) {
  checkPlane("gInterpolate (source)", height, width, pitch);
  checkPlane("gInterpolate (target)", oheight, owidth, opitch);
  parallelRows(oheight, owidth, [&](int y0, int y1) {
    interpolateRows(outarray, owidth, opitch, src, height, width, pitch, scaleFactor, y0, y1);
  });
}

}  // namespace flowcore::cpu
