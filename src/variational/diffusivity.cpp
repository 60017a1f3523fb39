#include "variational/diffusivity.h"

#include <cstddef>

namespace flowcore {

namespace {
// Central difference: 0.5 * (f(x + 1) - f(x - 1)).
const float kCentralDifference[3] = {-0.5f, 0.0f, 0.5f};
}  // namespace

void gDiffusivity(Backend& backend, const float* u, const float* v, const float* du, const float* dv,
                  float* diffX, float* diffY, int height, int width, int pitch, float* sum, float* derivative) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  backend.clear(diffX, plane);
  backend.clear(diffY, plane);
  const float* flow[2] = {u, v};
  const float* increment[2] = {du, dv};
  for (int c = 0; c < 2; ++c) {
    backend.copy(sum, flow[c], plane);
    backend.add(sum, increment[c], height, width, pitch);
    backend.convolveY(derivative, sum, height, width, pitch, kCentralDifference, 3);
    backend.gradientX(diffX, derivative, sum, height, width, pitch);
    backend.convolveX(derivative, sum, height, width, pitch, kCentralDifference, 3);
    backend.gradientY(diffY, derivative, sum, height, width, pitch);
  }
  backend.normalize(diffX, height, width, pitch);
  backend.normalize(diffY, height, width, pitch);
}

}  // namespace flowcore
