#include "backends/extra_stages.h"

#include <iostream>
#include <string>

#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cpu/cpu_extra_stages.h"
#include "backends/backend.h"
#include "common/diagnostics.h"

namespace vemo {

std::unique_ptr<ExtraStages> makeExtraStages(Backend& backend) {
  const std::string name = backend.name();
  if (name == "cpu") return std::make_unique<CpuExtraStages>();
  if (name == "cuda") {
    if (std::unique_ptr<ExtraStages> stages = makeCudaExtraStages(backend)) return stages;
  }
  const std::string message = "the SOR solver, energy evaluation and 2-D filter are not available on the " + name +
                              " backend";
  vemo::reportf(stderr, "%s\n", message.c_str());
  throw BackendError(message);
}

}  // namespace vemo
