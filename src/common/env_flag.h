// On/off switches from the environment (VEMO_CUDA_SYNC, VEMO_REQUIRE_GPU).
#pragma once

#include <cstdlib>
#include <cstring>

namespace vemo {

// A switch is on when its variable is set to anything but "" or "0".
inline bool envFlagValue(const char* value) {
  return value != nullptr && *value != '\0' && std::strcmp(value, "0") != 0;
}

inline bool envFlag(const char* name) { return envFlagValue(std::getenv(name)); }

}  // namespace vemo
