#include "gpu/matching_stages.h"

#include <iostream>
#include <string>

#include "backends/cpu/cpu_matching_stages.h"
#include "gpu/backend.h"

namespace flowcore {

std::unique_ptr<MatchingStages> makeMatchingStages(Backend& backend) {
  const std::string name = backend.name();
  if (name == "cpu") return std::make_unique<CpuMatchingStages>();
  const std::string message = "descriptor matching is not available on the " + name + " backend";
  std::cerr << message << std::endl;
  throw BackendError(message);
}

}  // namespace flowcore
