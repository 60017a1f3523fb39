#include "gpu/backend_factory.h"

#include "backends/cpu/cpu_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cuda/device_probe.h"

namespace flowcore {

namespace {
BackendRequest requested = BackendRequest::Auto;

// The CUDA backend runs only when asked for by name and a device is usable.
// Automatic selection stays on the CPU until the CUDA backend's parity tests
// have passed on a real GPU: until then its results are unverified.
bool useCuda() { return requested == BackendRequest::Cuda && cudaDeviceUsable(); }
}  // namespace

void requestBackend(BackendRequest request) { requested = request; }

const char* chosenBackendName() { return useCuda() ? "cuda" : "cpu"; }

std::unique_ptr<Backend> makeBackend() {
  if (useCuda()) {
    if (std::unique_ptr<Backend> cuda = makeCudaBackend()) return cuda;
  }
  return std::make_unique<CpuBackend>();
}

}  // namespace flowcore
