// Creates the CUDA backend directly, whatever backend the factory picks.
#pragma once

#include <memory>

#include "gpu/backend.h"

namespace flowcore {

// A CUDA backend on the current device, or nullptr in a build without CUDA.
// The caller checks cudaDeviceUsable() first: without a usable device the
// first runtime call fails and ends the process.
std::unique_ptr<Backend> makeCudaBackend();

}  // namespace flowcore
