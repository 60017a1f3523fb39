#include "backends/backend_factory.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cuda/device_probe.h"

namespace flowcore {

namespace {
BackendRequest requested = BackendRequest::Auto;

// Prints `message` on standard error the first time it is asked to.
void sayOnce(const std::string& message) {
  static std::set<std::string> said;
  if (said.insert(message).second) std::fprintf(stderr, "vemo: %s\n", message.c_str());
}

// VEMO_DEVICE=cpu or cuda stands in for an explicit request when the program
// leaves the choice to the factory (the vemo command has no option for it).
BackendRequest environmentRequest() {
  const char* env = std::getenv("VEMO_DEVICE");
  if (env == nullptr || *env == '\0') return BackendRequest::Auto;
  if (std::strcmp(env, "cpu") == 0) return BackendRequest::Cpu;
  if (std::strcmp(env, "cuda") == 0) return BackendRequest::Cuda;
  sayOnce(std::string("VEMO_DEVICE must be cpu or cuda; ignoring \"") + env + "\"");
  return BackendRequest::Auto;
}

BackendRequest effectiveRequest() { return requested != BackendRequest::Auto ? requested : environmentRequest(); }

bool useCuda() { return effectiveRequest() != BackendRequest::Cpu && cudaDeviceUsable(); }

// Falling back to the CPU is worth one line when a GPU was there but could
// not be used, or when the environment asked for one; the run goes on and
// gives the same output. (Programs that take an explicit request report it
// themselves.)
void reportFallback() {
  if (requested != BackendRequest::Auto) return;
  const CudaProbe& probe = probeCudaDevice();
  if (probe.present) {
    sayOnce("running on the CPU: " + probe.reason);
  } else if (environmentRequest() == BackendRequest::Cuda) {
    sayOnce("running on the CPU: VEMO_DEVICE=cuda, but no usable CUDA GPU was found");
  }
}
}  // namespace

void requestBackend(BackendRequest request) { requested = request; }

const char* chosenBackendName() { return useCuda() ? "cuda" : "cpu"; }

std::unique_ptr<Backend> makeBackend() {
  if (useCuda()) {
    if (std::unique_ptr<Backend> cuda = makeCudaBackend()) return cuda;
  } else if (effectiveRequest() != BackendRequest::Cpu) {
    reportFallback();
  }
  return std::make_unique<CpuBackend>();
}

}  // namespace flowcore
