// SIGINT and SIGTERM during a run of pairs. While a CInterruption lives, the
// two signals only set a flag, which is also the calling thread's cancel
// flag: the computation under way stops at its next check (vemo::Cancelled)
// and the run ends between pairs, so every output on disk is complete. A
// second signal of the same kind ends the program at once, as it would
// have without the handler.
#pragma once

#include <csignal>

#include "common/cancel.h"

class CInterruption {
 public:
  CInterruption();
  ~CInterruption();
  CInterruption(const CInterruption&) = delete;
  CInterruption& operator=(const CInterruption&) = delete;

  bool requested() const;
  // 128 + the signal received: 130 for SIGINT, 143 for SIGTERM.
  int exitStatus() const;

 private:
  vemo::CancelScope scope_;
  struct sigaction savedInt_, savedTerm_;
};
