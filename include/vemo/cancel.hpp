// Stopping a computation from another thread. The thread that calls an
// Engine (or flow_to_rgb) installs a flag for as long as the call runs;
// another thread sets the flag, and the call throws vemo::Cancelled soon
// after: the method looks at the flag between pyramid levels, fixed-point
// and solver iterations and slices of the matching (a 1024 x 436 pair on
// one CPU core stops within a tenth of a second). The Engine stays usable.
//
//   std::atomic<bool> stop{false};
//   std::thread worker([&] {
//     vemo::CancelScope scope(&stop);
//     try { flow = engine.flow(a, b); } catch (const vemo::Cancelled&) { ... }
//   });
//   stop = true;  // from any thread
#pragma once

#include <atomic>

#include "vemo/errors.hpp"

namespace vemo {

// Installs `flag` (null: none) as the calling thread's cancel flag until the
// scope ends, then restores the one before. Without a scope nothing is
// cancelled.
class CancelScope {
 public:
  explicit CancelScope(const std::atomic<bool>* flag);
  ~CancelScope();
  CancelScope(const CancelScope&) = delete;
  CancelScope& operator=(const CancelScope&) = delete;

 private:
  const std::atomic<bool>* saved_;
};

}  // namespace vemo
