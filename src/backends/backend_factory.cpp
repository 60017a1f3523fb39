#include "backends/backend_factory.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cuda/device_probe.h"
#include "common/diagnostics.h"

namespace vemo {

namespace {
DeviceRequest requested;

// Prints `message` on standard error the first time it is asked to, after
// the program's message prefix ("vemo: " where none is set).
void sayOnce(const std::string& message) {
  static std::mutex lock;
  static std::set<std::string> said;
  std::lock_guard<std::mutex> hold(lock);
  const char* prefix = *messagePrefix() != '\0' ? messagePrefix() : "vemo: ";
  if (said.insert(message).second) std::fprintf(stderr, "%s%s\n", prefix, message.c_str());
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

}  // namespace

DeviceRequest effectiveRequest(const DeviceRequest& request) {
  return request.backend != BackendRequest::Auto ? request : environmentRequest();
}

namespace {

bool useCuda(const DeviceRequest& request) {
  const DeviceRequest r = effectiveRequest(request);
  return r.backend != BackendRequest::Cpu && cudaDeviceUsable(r.cudaDevice);
}

// Falling back to the CPU is worth one line when a GPU was there but could
// not be used, or when the environment asked for one; the run goes on and
// gives the same output. (Callers that make an explicit request report it
// themselves.)
void reportFallback(const DeviceRequest& request) {
  if (request.backend != BackendRequest::Auto) return;
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

const char* chosenBackendName() { return useCuda(requested) ? "cuda" : "cpu"; }

int chosenCudaDevice() { return effectiveRequest(requested).cudaDevice; }

std::unique_ptr<Backend> makeBackend() { return makeBackend(requested); }

std::unique_ptr<Backend> makeBackend(const DeviceRequest& request) {
  if (useCuda(request)) {
    if (std::unique_ptr<Backend> cuda = makeCudaBackend(effectiveRequest(request).cudaDevice)) return cuda;
  } else if (effectiveRequest(request).backend != BackendRequest::Cpu) {
    reportFallback(request);
  }
  return std::make_unique<CpuBackend>();
}

}  // namespace vemo
