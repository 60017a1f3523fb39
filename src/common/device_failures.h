// What follows a failed device call. The failure is reported (see
// common/diagnostics.h) and thrown as BackendError; the programs end with
// status 1, an embedding process goes on. A device fault leaves the GPU
// context unusable, so once one has been seen, the errors that releasing
// the failed run's memory returns are its echoes and pass silently.
#pragma once

#include <atomic>

namespace vemo {

inline std::atomic<bool> deviceFailureSeenFlag{false};

inline void noteDeviceFailure() { deviceFailureSeenFlag.store(true, std::memory_order_relaxed); }
inline bool deviceFailureSeen() { return deviceFailureSeenFlag.load(std::memory_order_relaxed); }

}  // namespace vemo
