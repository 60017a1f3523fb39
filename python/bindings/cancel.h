// A cancel flag Python holds for one call: the call runs on a worker thread
// under the flag (vemo::CancelScope), and the thread waiting for it sets
// the flag on Ctrl-C (python/vemo/_waiting.py).
#pragma once

#include <atomic>

namespace nanobind {
class module_;
}

namespace vemopy {

struct CancelFlag {
  std::atomic<bool> set{false};
};

// The flag to install for an argument that may be None.
inline const std::atomic<bool>* flagOf(const CancelFlag* flag) { return flag != nullptr ? &flag->set : nullptr; }

void bindCancel(nanobind::module_& m);

}  // namespace vemopy
