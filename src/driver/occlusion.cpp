#include "driver/occlusion.h"

#include <cmath>
#include <cstdio>

#include "common/diagnostics.h"
#include "image/exceptions.h"

CTensor<float> occlusionMask(const CTensor<float>& forward, const CTensor<float>& backward) {
  if (forward.zSize != 2 || backward.zSize != 2 || forward.xSize != backward.xSize ||
      forward.ySize != backward.ySize || forward.elements() == 0) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: forward flow %d x %d x %d and backward flow %d x %d x %d "
                 "must be the same non-empty two-plane size\n",
                 forward.xSize, forward.ySize, forward.zSize, backward.xSize, backward.ySize, backward.zSize);
    throw ETensorIncompatibleSize();
  }
  const int width = forward.xSize, height = forward.ySize;
  const size_t plane = forward.planeSize();
  CTensor<float> mask(width, height, 1, 0.0f);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const size_t i = static_cast<size_t>(y) * width + x;
      const float fu = forward.data[i], fv = forward.data[plane + i];
      const float tx = x + fu, ty = y + fv;
      bool occluded = !std::isfinite(tx) || !std::isfinite(ty) || tx < 0.0f || ty < 0.0f ||
                      tx > static_cast<float>(width - 1) || ty > static_cast<float>(height - 1);
      if (!occluded) {
        const int x0 = static_cast<int>(std::floor(tx)), y0 = static_cast<int>(std::floor(ty));
        const int x1 = x0 + 1 < width ? x0 + 1 : x0, y1 = y0 + 1 < height ? y0 + 1 : y0;
        const float ax = tx - x0, ay = ty - y0;
        float b[2];
        for (int c = 0; c < 2; ++c) {
          const float* p = backward.data + c * plane;
          const float top = (1 - ax) * p[static_cast<size_t>(y0) * width + x0] + ax * p[static_cast<size_t>(y0) * width + x1];
          const float bottom =
              (1 - ax) * p[static_cast<size_t>(y1) * width + x0] + ax * p[static_cast<size_t>(y1) * width + x1];
          b[c] = (1 - ay) * top + ay * bottom;
        }
        const float su = fu + b[0], sv = fv + b[1];
        const float mismatch = su * su + sv * sv;
        const float tolerance = 0.01f * (fu * fu + fv * fv + b[0] * b[0] + b[1] * b[1]) + 0.5f;
        occluded = !(mismatch <= tolerance);
      }
      if (occluded) mask.data[i] = 255.0f;
    }
  }
  return mask;
}
