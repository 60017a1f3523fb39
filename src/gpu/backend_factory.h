// Chooses the backend that runs the device-path stages.
#pragma once

#include <memory>

#include "gpu/backend.h"

namespace vemo {

// The backend of this build: the CPU backend for now; a GPU backend joins
// here once it exists.
std::unique_ptr<Backend> makeBackend();

}  // namespace vemo
