// Refusal of invalid stage arguments by the CUDA backend: the message goes to
// standard error, then BackendError is thrown (no device state is touched).
#pragma once

#include <cstdio>
#include <string>

#include "backends/backend.h"
#include "common/diagnostics.h"

namespace vemo::cuda {

[[noreturn]] inline void refuseArguments(const std::string& message) {
  reportf(stderr, "%s\n", message.c_str());
  throw BackendError(message);
}

inline void checkPlane(const char* stage, int height, int width, int pitch) {
  if (height < 1 || width < 1 || pitch < width)
    refuseArguments(std::string(stage) + ": invalid plane size " + std::to_string(width) + "x" +
                    std::to_string(height) + " with pitch " + std::to_string(pitch));
}

}  // namespace vemo::cuda
