// Chooses the backend that runs the device-path stages.
#pragma once

#include <memory>

#include "backends/backend.h"

namespace flowcore {

// Which backend later makeBackend() calls create, process-wide: Auto (the
// default) takes CUDA when a GPU is usable and the build has that backend.
enum class BackendRequest { Auto, Cpu, Cuda };
void requestBackend(BackendRequest request);

// The name ("cpu" or "cuda") of the backend makeBackend() creates under the
// current request. Callers compare it with what was asked for, so that a
// request that cannot be met is reported rather than silently replaced.
const char* chosenBackendName();

// The backend under the current request: CUDA when asked for or left to the
// factory and a usable GPU is present, the CPU backend otherwise. Left to the
// factory, the environment variable VEMO_DEVICE (cpu or cuda) decides; a GPU
// that is present but unusable is reported once on standard error.
std::unique_ptr<Backend> makeBackend();

}  // namespace flowcore
