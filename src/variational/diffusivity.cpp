#include "variational/diffusivity.h"

#include "pixel/diffusivity.h"

namespace vemo {

void gDiffusivity(Backend& backend, const float* u, const float* v, const float* du, const float* dv,
                  float* diffX, float* diffY, int height, int width, int pitch, float* sum, float* derivative) {
  backend.diffusivity(u, v, du, dv, diffX, diffY, height, width, pitch, sum, derivative, kRobustEpsilon);
}

}  // namespace vemo
