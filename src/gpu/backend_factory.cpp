#include "gpu/backend_factory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "backends/cpu/cpu_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cuda/device_probe.h"

namespace flowcore {

namespace {
BackendRequest requested = BackendRequest::Auto;

// VEMO_DEVICE=cpu or cuda stands in for an explicit request when the program
// leaves the choice to the factory (the vemo command has no option for it).
BackendRequest effectiveRequest() {
  if (requested != BackendRequest::Auto) return requested;
  const char* env = std::getenv("VEMO_DEVICE");
  if (env != nullptr && std::strcmp(env, "cpu") == 0) return BackendRequest::Cpu;
  if (env != nullptr && std::strcmp(env, "cuda") == 0) return BackendRequest::Cuda;
  return BackendRequest::Auto;
}

bool useCuda() { return effectiveRequest() != BackendRequest::Cpu && cudaDeviceUsable(); }

// A GPU that is there but cannot be used is worth one line, once: the run
// goes on, on the CPU, and gives the same output.
void reportUnusableGpuOnce() {
  static bool reported = false;
  const CudaProbe& probe = probeCudaDevice();
  if (reported || !probe.present || probe.usable) return;
  reported = true;
  std::fprintf(stderr, "vemo: running on the CPU: %s\n", probe.reason.c_str());
}
}  // namespace

void requestBackend(BackendRequest request) { requested = request; }

const char* chosenBackendName() { return useCuda() ? "cuda" : "cpu"; }

std::unique_ptr<Backend> makeBackend() {
  if (useCuda()) {
    if (std::unique_ptr<Backend> cuda = makeCudaBackend()) return cuda;
  } else if (effectiveRequest() == BackendRequest::Auto) {
    reportUnusableGpuOnce();
  }
  return std::make_unique<CpuBackend>();
}

}  // namespace flowcore
