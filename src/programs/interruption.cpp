#include "programs/interruption.h"

#include <atomic>

namespace {

// Set from the signal handler: a lock-free atomic store and a sig_atomic_t
// are all it does.
std::atomic<bool> gRequested{false};
volatile std::sig_atomic_t gSignal = 0;

extern "C" void onSignal(int signal) {
  gSignal = signal;
  gRequested.store(true);
}

void install(int signal, struct sigaction* saved) {
  struct sigaction action = {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  // Reads and writes under way go on; the next signal is handled as usual.
  action.sa_flags = SA_RESTART | SA_RESETHAND;
  sigaction(signal, &action, saved);
}

}  // namespace

CInterruption::CInterruption() : scope_(&gRequested) {
  gRequested = false;
  gSignal = 0;
  install(SIGINT, &savedInt_);
  install(SIGTERM, &savedTerm_);
}

CInterruption::~CInterruption() {
  sigaction(SIGINT, &savedInt_, nullptr);
  sigaction(SIGTERM, &savedTerm_, nullptr);
}

bool CInterruption::requested() const { return gRequested.load(); }

int CInterruption::exitStatus() const { return 128 + (gSignal != 0 ? static_cast<int>(gSignal) : SIGINT); }
