#include "backends/cuda/cuda_backend_factory.h"

#include <cstdio>
#include <string>

#if defined(VEMO_HAVE_CUDA)
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_extra_stages.h"
#endif
#include "gpu/extra_stages.h"

namespace flowcore {

std::unique_ptr<Backend> makeCudaBackend() {
#if defined(VEMO_HAVE_CUDA)
  return std::make_unique<CudaBackend>();
#else
  return nullptr;
#endif
}

std::unique_ptr<ExtraStages> makeCudaExtraStages(Backend& backend) {
#if defined(VEMO_HAVE_CUDA)
  if (std::string(backend.name()) != "cuda") {
    const std::string message = std::string("CUDA extra stages cannot work on the memory of the ") + backend.name() +
                                " backend";
    std::fprintf(stderr, "%s\n", message.c_str());
    throw BackendError(message);
  }
  return std::make_unique<CudaExtraStages>(backend);
#else
  (void)backend;
  return nullptr;
#endif
}

}  // namespace flowcore
