// Stopping a computation from outside. A caller that may want to stop the
// computation running on its thread (a program on SIGINT, the Python module
// on Ctrl-C) installs a flag for its duration with CancelScope; the control
// flow of the method (pyramid levels, fixed-point and solver iterations, the
// matching in slices of points) calls cancellationPoint(), which throws
// Cancelled once the flag is set. Nothing is installed by default (the vemo
// program): a check is then one thread-local load.
#pragma once

#include <atomic>
#include <stdexcept>

#include "common/hd.h"

namespace vemo {

class Cancelled : public std::runtime_error {
 public:
  Cancelled() : std::runtime_error("the computation was cancelled") {}
};

namespace detail {
inline thread_local const std::atomic<bool>* tlCancelFlag = nullptr;
}  // namespace detail

// Installs `flag` (null: none) as the calling thread's cancel flag until the
// scope ends, then restores the one before.
class CancelScope {
 public:
  explicit CancelScope(const std::atomic<bool>* flag) : saved_(detail::tlCancelFlag) { detail::tlCancelFlag = flag; }
  ~CancelScope() { detail::tlCancelFlag = saved_; }
  CancelScope(const CancelScope&) = delete;
  CancelScope& operator=(const CancelScope&) = delete;

 private:
  const std::atomic<bool>* saved_;
};

// Throws Cancelled when the calling thread's flag is set. A no-op in device
// code (kernels are not stopped half way) and without a flag.
VEMO_INLINE void cancellationPoint() {
#if !defined(__CUDA_ARCH__)
  const std::atomic<bool>* flag = detail::tlCancelFlag;
  if (flag != nullptr && flag->load(std::memory_order_relaxed)) throw Cancelled();
#endif
}

}  // namespace vemo
