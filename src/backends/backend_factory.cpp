#include "backends/backend_factory.h"

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cuda/device_probe.h"

namespace vemo {

namespace {
DeviceRequest requested;

// Prints `message` on standard error the first time it is asked to.
void sayOnce(const std::string& message) {
  static std::set<std::string> said;
  if (said.insert(message).second) std::fprintf(stderr, "vemo: %s\n", message.c_str());
}

// VEMO_DEVICE stands in for an explicit request when the program leaves the
// choice to the factory (the vemo command has no option for it).
DeviceRequest environmentRequest() {
  const char* env = std::getenv("VEMO_DEVICE");
  DeviceRequest request;
  if (env == nullptr || *env == '\0') return request;
  if (parseDeviceName(env, request)) return request;
  sayOnce(std::string("VEMO_DEVICE must be ") + kDeviceNames + "; ignoring \"" + env + "\"");
  return DeviceRequest();
}

DeviceRequest effectiveRequest() {
  return requested.backend != BackendRequest::Auto ? requested : environmentRequest();
}

bool useCuda() {
  const DeviceRequest r = effectiveRequest();
  return r.backend != BackendRequest::Cpu && cudaDeviceUsable(r.cudaDevice);
}

// Falling back to the CPU is worth one line when a GPU was there but could
// not be used, or when the environment asked for one; the run goes on and
// gives the same output. (Programs that take an explicit request report it
// themselves.)
void reportFallback() {
  if (requested.backend != BackendRequest::Auto) return;
  const DeviceRequest r = environmentRequest();
  const CudaProbe& probe = probeCudaDevice(r.cudaDevice);
  if (probe.present) {
    sayOnce("running on the CPU: " + probe.reason);
  } else if (r.backend == BackendRequest::Cuda) {
    sayOnce(std::string("running on the CPU: VEMO_DEVICE=") + std::getenv("VEMO_DEVICE") +
            ", but no usable CUDA GPU was found");
  }
}
}  // namespace

bool parseDeviceName(const std::string& text, DeviceRequest& request) {
  if (text == "auto" || text == "cpu" || text == "cuda") {
    request = {text == "auto" ? BackendRequest::Auto : text == "cpu" ? BackendRequest::Cpu : BackendRequest::Cuda,
               0};
    return true;
  }
  const std::string prefix = "cuda:";
  const std::string digits = text.compare(0, prefix.size(), prefix) == 0 ? text.substr(prefix.size()) : "";
  // At most nine digits: any device number fits an int.
  if (digits.empty() || digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos)
    return false;
  request = {BackendRequest::Cuda, std::stoi(digits)};
  return true;
}

void requestBackend(BackendRequest request, int cudaDevice) { requested = {request, cudaDevice}; }

const char* chosenBackendName() { return useCuda() ? "cuda" : "cpu"; }

int chosenCudaDevice() { return effectiveRequest().cudaDevice; }

std::unique_ptr<Backend> makeBackend() {
  if (useCuda()) {
    if (std::unique_ptr<Backend> cuda = makeCudaBackend(chosenCudaDevice())) return cuda;
  } else if (effectiveRequest().backend != BackendRequest::Cpu) {
    reportFallback();
  }
  return std::make_unique<CpuBackend>();
}

}  // namespace vemo
