#include "backends/matching_stages.h"

#include <iostream>
#include <string>

#include "backends/cpu/cpu_matching_stages.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/backend.h"
#include "common/diagnostics.h"

namespace vemo {

std::unique_ptr<MatchingStages> makeMatchingStages(Backend& backend) {
  const std::string name = backend.name();
  if (name == "cpu") return std::make_unique<CpuMatchingStages>();
  if (name == "cuda") {
    if (std::unique_ptr<MatchingStages> stages = makeCudaMatchingStages(backend)) return stages;
  }
  const std::string message = "descriptor matching is not available on the " + name + " backend";
  vemo::reportf(stderr, "%s\n", message.c_str());
  throw BackendError(message);
}

}  // namespace vemo
