#include "matching/host_entry_points.h"

#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>

#include "backends/backend.h"
#include "backends/backend_factory.h"
#include "backends/matching_stages.h"
#include "matching/hog_match_driver.h"

namespace vemo {

namespace {

void check(const char* who, int height, int width, int planes, std::initializer_list<const void*> arrays) {
  std::string problem;
  if (height < 1 || width < 1)
    problem = "invalid size " + std::to_string(width) + "x" + std::to_string(height);
  else if (planes < 1)
    problem = "invalid plane count " + std::to_string(planes);
  for (const void* a : arrays)
    if (a == nullptr) problem = "null array";
  if (problem.empty()) return;
  const std::string message = std::string(who) + ": " + problem;
  std::fprintf(stderr, "%s\n", message.c_str());
  throw std::invalid_argument(message);
}

}  // namespace

void createAndMatchHOG(const float* Image1, const float* Image2, float* u, float* v, float* Confidence, int height,
                       int width, int nChannels) {
  check("createAndMatchHOG", height, width, nChannels, {Image1, Image2, u, v, Confidence});
  const std::unique_ptr<Backend> backend = makeBackend();
  const int pitch = backend->pitchFor(width);
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  const Buffer f1 = uploadRows(*backend, Image1, width, nChannels * height, pitch);
  const Buffer f2 = uploadRows(*backend, Image2, width, nChannels * height, pitch);
  Buffer out = backend->allocate(3 * plane);
  backend->clear(out.data(), out.floats());
  gCreateAndMatchHOG(*backend, f1.data(), f2.data(), out.data(), out.data() + plane, out.data() + 2 * plane, height,
                     width, pitch, nChannels);
  backend->download(u, out.data(), pitch, width, height);
  backend->download(v, out.data() + plane, pitch, width, height);
  backend->download(Confidence, out.data() + 2 * plane, pitch, width, height);
  backend->synchronize();
}

void ComputeHOGGPU(const float* image, float* hog, int nChannels, int nOri, int height, int width) {
  check("ComputeHOGGPU", height, width, nChannels < nOri ? nChannels : nOri, {image, hog});
  const std::unique_ptr<Backend> backend = makeBackend();
  const std::unique_ptr<MatchingStages> stages = makeMatchingStages(*backend);
  const int pitch = backend->pitchFor(width);
  const Buffer img = uploadRows(*backend, image, width, nChannels * height, pitch);
  Buffer field = backend->allocate(static_cast<std::size_t>(pitch) * height * nOri);
  backend->clear(field.data(), field.floats());
  stages->computeHOG(img.data(), field.data(), nChannels, nOri, height, width, pitch);
  backend->download(hog, field.data(), pitch, width, nOri * height);
  backend->synchronize();
}

}  // namespace vemo
