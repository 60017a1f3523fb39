#include "common/device_failures.h"

#include <atomic>

namespace flowcore {

namespace {
std::atomic<bool> failuresThrow{false};
}  // namespace

void setDeviceFailuresThrow(bool on) { failuresThrow.store(on, std::memory_order_relaxed); }

bool deviceFailuresThrow() { return failuresThrow.load(std::memory_order_relaxed); }

}  // namespace flowcore
