#include "backends/cuda/cuda_backend_factory.h"

#if defined(VEMO_HAVE_CUDA)
#include "backends/cuda/cuda_backend.h"
#endif

namespace flowcore {

std::unique_ptr<Backend> makeCudaBackend() {
#if defined(VEMO_HAVE_CUDA)
  return std::make_unique<CudaBackend>();
#else
  return nullptr;
#endif
}

}  // namespace flowcore
