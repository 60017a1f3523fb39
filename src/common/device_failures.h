// What a failed device call does. The programs end with status 1 after the
// message: a device fault leaves the GPU context unusable and nothing can be
// retried. A library embedded in a long-lived process (the Python module)
// must not take its host down with it, so it switches failures to throw
// BackendError; the backend that failed is then not to be used again.
#pragma once

#include <atomic>

namespace vemo {

// Header-only: the CUDA library reads it and sits below the rest of the
// library at link time.
inline std::atomic<bool> deviceFailuresThrowFlag{false};

// Off by default (end the process).
inline void setDeviceFailuresThrow(bool on) { deviceFailuresThrowFlag.store(on, std::memory_order_relaxed); }
inline bool deviceFailuresThrow() { return deviceFailuresThrowFlag.load(std::memory_order_relaxed); }

}  // namespace vemo
