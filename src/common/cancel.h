// The method's side of cancellation (vemo/cancel.hpp): the calling thread's
// flag, and the check the control flow makes at its cancellation points
// (pyramid levels, fixed-point and solver iterations, slices of the
// matching, bands of the colour coding). Nothing is installed by default
// (the vemo program): a check is then one thread-local load.
#pragma once

#include <atomic>

#include "common/hd.h"
#include "vemo/cancel.hpp"
#include "vemo/errors.hpp"

namespace vemo {

namespace detail {
inline thread_local const std::atomic<bool>* tlCancelFlag = nullptr;
}  // namespace detail

// Throws Cancelled when the calling thread's flag is set. A no-op in device
// code (kernels are not stopped half way) and without a flag.
VEMO_INLINE void cancellationPoint() {
#if !defined(__CUDA_ARCH__)
  const std::atomic<bool>* flag = detail::tlCancelFlag;
  if (flag != nullptr && flag->load(std::memory_order_relaxed)) throw Cancelled();
#endif
}

}  // namespace vemo
