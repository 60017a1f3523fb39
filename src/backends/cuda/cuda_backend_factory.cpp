#include "backends/cuda/cuda_backend_factory.h"

#include <cstdio>
#include <string>

#if defined(VEMO_HAVE_CUDA)
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_extra_stages.h"
#include "backends/cuda/cuda_matching_stages.h"
#endif
#include "backends/extra_stages.h"
#include "backends/matching_stages.h"

#include "common/diagnostics.h"

namespace vemo {

std::unique_ptr<Backend> makeCudaBackend(int device) {
#if defined(VEMO_HAVE_CUDA)
  return std::make_unique<CudaBackend>(device);
#else
  (void)device;
  return nullptr;
#endif
}

#if defined(VEMO_HAVE_CUDA)
namespace {
// Device kernels handed host pointers would fault: refuse other backends.
void requireCudaMemory(const Backend& backend, const char* what) {
  if (std::string(backend.name()) == "cuda") return;
  const std::string message = std::string("CUDA ") + what + " cannot work on the memory of the " + backend.name() +
                              " backend";
  vemo::reportf(stderr, "%s\n", message.c_str());
  throw BackendError(message);
}
}  // namespace
#endif

std::unique_ptr<ExtraStages> makeCudaExtraStages(Backend& backend) {
#if defined(VEMO_HAVE_CUDA)
  requireCudaMemory(backend, "extra stages");
  return std::make_unique<CudaExtraStages>(backend);
#else
  (void)backend;
  return nullptr;
#endif
}

std::unique_ptr<MatchingStages> makeCudaMatchingStages(Backend& backend) {
#if defined(VEMO_HAVE_CUDA)
  requireCudaMemory(backend, "matching stages");
  return std::make_unique<CudaMatchingStages>(backend);
#else
  (void)backend;
  return nullptr;
#endif
}

}  // namespace vemo
