#include "variational/run_memory.h"

#include <cstdio>
#include <string>

namespace flowcore {

namespace {

// Full-frame planes (pitch x height floats each) alive at the peak of a run,
// measured on the CPU backend and rounded up: the two frames (one plane per
// channel each), the match planes and their level copies, the fixed-point
// and solver scratch, the level's frames, warp, mask and two generations of
// flow planes, and the matching stage's descriptors of both frames.
constexpr double kPlanesPerChannel = 4.0;
constexpr double kFixedPlanes = 80.0;

}  // namespace

std::size_t estimateRunBytes(int height, int width, int pitch, int channels) {
  const double plane = static_cast<double>(pitch > width ? pitch : width) * static_cast<double>(height);
  const double floats = plane * (kFixedPlanes + kPlanesPerChannel * channels);
  const double bytes = floats * sizeof(float);
  if (bytes >= static_cast<double>(static_cast<std::size_t>(-1) / 2)) return static_cast<std::size_t>(-1) / 2;
  return static_cast<std::size_t>(bytes);
}

void refuseIfTooLarge(const Backend& backend, int height, int width, int pitch, int channels) {
  const std::size_t need = estimateRunBytes(height, width, pitch, channels);
  const std::size_t have = backend.availableBytes();
  if (need <= have) return;
  const double mib = 1024.0 * 1024.0;
  char message[256];
  std::snprintf(message, sizeof message,
                "a %d x %d frame with %d channels needs about %.0f MiB of %s memory, but only %.0f MiB are "
                "available",
                width, height, channels, need / mib, backend.name(), have / mib);
  std::fprintf(stderr, "vemo: %s\n", message);
  throw BackendOutOfMemory(message);
}

}  // namespace flowcore
