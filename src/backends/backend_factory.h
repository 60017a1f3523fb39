// Chooses the backend that runs the device-path stages.
#pragma once

#include <memory>
#include <string>

#include "backends/backend.h"

namespace vemo {

// Which backend later makeBackend() calls create, process-wide: Auto (the
// default) takes CUDA when a GPU is usable and the build has that backend.
enum class BackendRequest { Auto, Cpu, Cuda };

// A backend and, for CUDA, the device number (cuda:N; plain "cuda" is 0).
struct DeviceRequest {
  BackendRequest backend = BackendRequest::Auto;
  int cudaDevice = 0;
};

// "auto", "cpu", "cuda" or "cuda:N" (N a device number: digits only).
// Returns false for anything else; whether device N exists is the probe's
// to say.
bool parseDeviceName(const std::string& text, DeviceRequest& request);
// The accepted names, for messages.
constexpr const char* kDeviceNames = "auto, cpu, cuda or cuda:N";

void requestBackend(BackendRequest request, int cudaDevice = 0);

// The request that decides: an explicit one as it is, Auto replaced by what
// the environment variable VEMO_DEVICE names (Auto again without it).
DeviceRequest effectiveRequest(const DeviceRequest& request);

// The name ("cpu" or "cuda") of the backend makeBackend() creates under the
// current request. Callers compare it with what was asked for, so that a
// request that cannot be met is reported rather than silently replaced.
const char* chosenBackendName();

// The CUDA device that a CUDA backend made now would use: the request's,
// else the one VEMO_DEVICE names, else 0.
int chosenCudaDevice();

// The backend under the current request: CUDA when asked for or left to the
// factory and a usable GPU is present, the CPU backend otherwise. Left to the
// factory, the environment variable VEMO_DEVICE (a device name as above)
// decides; a GPU that is present but unusable is reported once on standard
// error.
std::unique_ptr<Backend> makeBackend();

// The same for an explicit request, without the process-wide one: safe to
// call from several threads at once. A CUDA request that cannot be met
// gives the CPU backend; callers compare name() with what they asked for.
std::unique_ptr<Backend> makeBackend(const DeviceRequest& request);

}  // namespace vemo
