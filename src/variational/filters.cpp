#include "variational/filters.h"

#include <cstddef>
#include <vector>

#include "method/filter_masks.h"

namespace vemo {

void gGaussianFilter(Backend& backend, float* out, const float* in, int height, int width, int pitch, float sigma) {
  int length = 0;
  const std::vector<float> mask = GaussianFilterCreate(sigma, length);
  // Both passes filter in place, which is the clamp-to-edge rule of the
  // correlations for every mask length.
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  Buffer tmp = backend.allocate(plane);
  backend.copy(tmp.data(), in, plane);
  backend.convolveX(tmp.data(), tmp.data(), height, pitch, pitch, mask.data(), length);
  backend.convolveY(tmp.data(), tmp.data(), height, width, pitch, mask.data(), length);
  // Data columns only, so that the padding of `out` keeps what it held.
  backend.setValue(out, height, width, pitch, 0.0f);
  backend.add(out, tmp.data(), height, width, pitch);
}

void gGaussianDerivativeFilter(Backend& backend, float* out, const float* in, int height, int width, float sigma,
                               char dir) {
  int length = 0;
  const std::vector<float> mask = GaussianDerivativeFilterCreate(sigma, length);
  if (out != in) backend.copy(out, in, static_cast<std::size_t>(width) * height);
  if (dir == 'x')
    backend.convolveX(out, out, height, width, width, mask.data(), length);
  else
    backend.convolveY(out, out, height, width, width, mask.data(), length);
}

}  // namespace vemo
