// How much backend memory one flow run needs, and the check that refuses a
// frame before anything is allocated for it.
#pragma once

#include <cstddef>

#include "backends/backend.h"

namespace flowcore {

// Upper bound, in bytes, of what a flow run (matching and the whole
// pyramid) holds at once on a backend for frames of height x width x
// channels stored at `pitch` floats per row.
std::size_t estimateRunBytes(int height, int width, int pitch, int channels);

// Prints how much memory the run needs and how much the backend has, and
// throws BackendOutOfMemory, when the estimate exceeds availableBytes().
void refuseIfTooLarge(const Backend& backend, int height, int width, int pitch, int channels);

}  // namespace flowcore
