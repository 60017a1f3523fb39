// How much backend memory one flow run needs, and the checks that refuse a
// frame before anything is allocated for it.
#pragma once

#include <cstddef>

#include "backends/backend.h"

namespace vemo {

// Upper bound, in bytes, of what a flow run (matching and the whole
// pyramid) holds at once on a backend for frames of height x width x
// channels stored at `pitch` floats per row, given what the backend holds
// beyond the control flow's buffers (Backend::runOverhead).
std::size_t estimateRunBytes(int height, int width, int pitch, int channels,
                             const Backend::RunOverhead& overhead = {});

// The per-pixel stages index the planes of an image with 32-bit offsets;
// the largest image, the system matrix, has kMatrixPlanes planes of
// pitch x height floats. Whether those offsets fit.
bool planeOffsetsFit(int height, int pitch);

// Prints why and throws BackendError when the frame's planes are too large
// for 32-bit offsets, or BackendOutOfMemory (with how much memory the run
// needs and how much the backend has) when the estimate exceeds
// availableBytes().
void refuseIfTooLarge(const Backend& backend, int height, int width, int pitch, int channels);

}  // namespace vemo
