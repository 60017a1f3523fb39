#include "variational/objective.h"

#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace vemo {

namespace {

constexpr int kChannels = 3;
// Central difference: d/dx f(x) = 0.5 (f(x + 1) - f(x - 1)).
constexpr float kDerivative[3] = {-0.5f, 0.0f, 0.5f};

void checkSize(const char* who, int height, int width, int pitch) {
  if (height < 1 || width < 1 || pitch < width) {
    const std::string message = std::string(who) + ": invalid plane size " + std::to_string(width) + "x" +
                                std::to_string(height) + " with pitch " + std::to_string(pitch);
    std::fprintf(stderr, "%s\n", message.c_str());
    throw std::invalid_argument(message);
  }
}

// Sum of sqrt(gx^2 + gy^2 + 1e-6) over `rows` rows, gx and gy the
// derivatives of `src`, computed in the scratch planes gx and gy.
float gradientTerm(Backend& backend, ExtraStages& stages, const float* src, float* gx, float* gy, int rows, int width,
                   int pitch) {
  backend.convolveX(gx, src, rows, width, pitch, kDerivative, 3);
  backend.convolveY(gy, src, rows, width, pitch, kDerivative, 3);
  stages.mult(gx, gx, gx, rows, width, pitch);
  stages.mult(gy, gy, gy, rows, width, pitch);
  backend.add(gx, gy, rows, width, pitch);
  stages.psi(gx, rows, width, pitch);
  return findSum(backend, gx, rows, width, pitch);
}

}  // namespace

float findSum(Backend& backend, const float* plane, int height, int width, int pitch) {
  checkSize("findSum", height, width, pitch);
  std::vector<float> host(static_cast<std::size_t>(height) * width);
  backend.download(host.data(), plane, pitch, width, height);
  backend.synchronize();
  float sum = 0.0f;
  for (float value : host) sum += value;
  return sum;
}

float gObjectiveValue(Backend& backend, ExtraStages& stages, const float* frame1, const float* frame2,
                      const float* u, const float* v, int height, int width, int pitch, float first, float second,
                      float third) {
  (void)second;
  checkSize("gObjectiveValue", height, width, pitch);
  const std::size_t P = static_cast<std::size_t>(pitch) * height;
  const int rows = kChannels * height;
  // warped, difference, two gradients (three planes each), the warp's mask
  // and four flow-derivative planes.
  Buffer scratch = backend.allocate(17 * P);
  backend.clear(scratch.data(), scratch.floats());
  float* warped = scratch.data();
  float* D = warped + 3 * P;
  float* GX = D + 3 * P;
  float* GY = GX + 3 * P;
  float* mask = GY + 3 * P;
  float* UX = mask + P;
  float* UY = UX + P;
  float* VX = UY + P;
  float* VY = VX + P;

  backend.warpMotion(warped, u, v, frame2, frame1, kChannels, mask, height, width, pitch);
  backend.diff(D, warped, frame1, rows, width, pitch);
  const float gradSum = gradientTerm(backend, stages, D, GX, GY, rows, width, pitch);

  stages.mult(D, D, D, rows, width, pitch);
  stages.psi(D, rows, width, pitch);
  const float dataSum = findSum(backend, D, rows, width, pitch);

  backend.convolveX(UX, u, height, width, pitch, kDerivative, 3);
  backend.convolveY(UY, u, height, width, pitch, kDerivative, 3);
  backend.convolveX(VX, v, height, width, pitch, kDerivative, 3);
  backend.convolveY(VY, v, height, width, pitch, kDerivative, 3);
  stages.mult(UX, UX, UX, height, width, pitch);
  stages.mult(UY, UY, UY, height, width, pitch);
  backend.add(UX, UY, height, width, pitch);
  stages.mult(VX, VX, VX, height, width, pitch);
  stages.mult(VY, VY, VY, height, width, pitch);
  backend.add(VX, VY, height, width, pitch);
  backend.add(UX, VX, height, width, pitch);
  stages.psi(UX, height, width, pitch);
  const float smoothSum = findSum(backend, UX, height, width, pitch);

  const float total = ((0.0f + first * gradSum) + dataSum) + third * smoothSum;
  return total / static_cast<float>(width * height);
}

float gObjectiveValue(Backend& backend, const float* frame1, const float* frame2, const float* u, const float* v,
                      int height, int width, int pitch, float first, float second, float third) {
  const std::unique_ptr<ExtraStages> stages = makeExtraStages(backend);
  return gObjectiveValue(backend, *stages, frame1, frame2, u, v, height, width, pitch, first, second, third);
}

}  // namespace vemo
