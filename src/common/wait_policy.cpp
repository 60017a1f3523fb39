#include "common/wait_policy.h"

#include <unistd.h>

#include <cstdlib>

namespace flowcore {

void preferSleepingThreads(char** argv) {
  if (std::getenv("OMP_WAIT_POLICY") != nullptr || std::getenv("GOMP_SPINCOUNT") != nullptr) return;
  if (setenv("OMP_WAIT_POLICY", "passive", 1) != 0) return;
  execv("/proc/self/exe", argv);
  // Only reached when the re-execution failed: run on with the default.
}

}  // namespace flowcore
