// Creates the CUDA backend and its stage executors directly, whatever
// backend the factory picks.
#pragma once

#include <memory>

#include "backends/backend.h"

namespace vemo {

// A CUDA backend on device `device` (cuda:N), or nullptr in a build without
// CUDA. The caller checks cudaDeviceUsable(device) first: without a usable
// device the first runtime call fails and ends the process.
std::unique_ptr<Backend> makeCudaBackend(int device = 0);

class ExtraStages;
// The SOR, energy and 2-D filter stages on the memory of `backend`, which
// must be a CUDA backend (from makeCudaBackend) and outlive them; nullptr in
// a build without CUDA.
std::unique_ptr<ExtraStages> makeCudaExtraStages(Backend& backend);

class MatchingStages;
// The descriptor-matching stages on the memory of `backend`, under the same
// conditions.
std::unique_ptr<MatchingStages> makeCudaMatchingStages(Backend& backend);

}  // namespace vemo
