#include "variational/run_memory.h"

#include <cstdint>
#include <cstdio>
#include <string>

#include "common/diagnostics.h"
#include "pixel/system_matrix.h"

namespace vemo {

namespace {

// Full-frame planes (pitch x height floats each) alive at the peak of a run,
// measured on the CPU backend and rounded up: the two frames (one plane per
// channel each), the match planes and their level copies, the fixed-point
// and solver scratch, the level's frames, warp, mask and two generations of
// flow planes, and the matching stage's descriptors of both frames.
constexpr double kPlanesPerChannel = 4.0;
constexpr double kFixedPlanes = 80.0;
// Alive while the matching stages run, before any stage scratch: the frames,
// the match planes, both frames' descriptors (2 x 15 planes), the confidence,
// two energies and the grid points' distances (under one plane).
constexpr double kMatchingPlanesPerChannel = 2.0;
constexpr double kMatchingFixedPlanes = 37.0;

}  // namespace

std::size_t estimateRunBytes(int height, int width, int pitch, int channels, const Backend::RunOverhead& overhead) {
  const double plane = static_cast<double>(pitch > width ? pitch : width) * static_cast<double>(height) * sizeof(float);
  const double whole = plane * (kFixedPlanes + kPlanesPerChannel * channels);
  const double matching = plane * (kMatchingFixedPlanes + kMatchingPlanesPerChannel * channels) +
                          static_cast<double>(overhead.matchingScratch);
  const double bytes = (whole > matching ? whole : matching) + static_cast<double>(overhead.held);
  if (bytes >= static_cast<double>(static_cast<std::size_t>(-1) / 2)) return static_cast<std::size_t>(-1) / 2;
  return static_cast<std::size_t>(bytes);
}

bool planeOffsetsFit(int height, int pitch) {
  return static_cast<std::int64_t>(kMatrixPlanes) * pitch * height <= INT32_MAX;
}

void refuseIfTooLarge(const Backend& backend, int height, int width, int pitch, int channels) {
  if (!planeOffsetsFit(height, pitch)) {
    vemo::reportf(stderr,
                 "vemo: a %d x %d frame is too large: the solver addresses %d planes of %d x %d floats (row pitch "
                 "x height) with 32-bit offsets, at most %lld floats per plane\n",
                 width, height, static_cast<int>(kMatrixPlanes), pitch, height,
                 static_cast<long long>(INT32_MAX / kMatrixPlanes));
    throw BackendError("frame too large for 32-bit plane offsets");
  }
  const std::size_t need = estimateRunBytes(height, width, pitch, channels,
                                            backend.runOverhead(height, width, pitch, channels));
  const std::size_t have = backend.availableBytes();
  if (need <= have) return;
  const double mib = 1024.0 * 1024.0;
  char message[256];
  std::snprintf(message, sizeof message,
                "a %d x %d frame with %d channels needs about %.0f MiB of %s memory, but only %.0f MiB are "
                "available",
                width, height, channels, need / mib, backend.name(), have / mib);
  vemo::reportf(stderr, "vemo: %s\n", message);
  throw BackendOutOfMemory(message);
}

}  // namespace vemo
