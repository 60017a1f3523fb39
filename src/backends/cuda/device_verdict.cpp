#include "backends/cuda/device_verdict.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace vemo {

namespace {

std::string version(int v) { return std::to_string(v / 1000) + "." + std::to_string(v % 1000 / 10); }

std::string gpus(int n) { return std::to_string(n) + (n == 1 ? " GPU" : " GPUs"); }

// Why CUDA sees no device although the driver lists some.
std::string hiddenReason(const CudaProbeFacts& f) {
  const std::string seen = "the NVIDIA driver lists " + gpus(f.driverGpus) + ", but CUDA sees no device: ";
  if (f.visibleDevicesSet && f.visibleDevices.find("MIG-") != std::string::npos)
    return seen + "CUDA_VISIBLE_DEVICES=\"" + f.visibleDevices + "\" names MIG devices that do not exist";
  if (f.migCapable && f.migInstances == 0)
    return seen + "MIG mode without a compute instance (create one with nvidia-smi mig, or turn MIG off)";
  if (f.visibleDevicesSet) return seen + "CUDA_VISIBLE_DEVICES=\"" + f.visibleDevices + "\" hides them";
  return seen + "the device files may not be accessible";
}

}  // namespace

CudaProbe judgeCudaDevice(const CudaProbeFacts& f) {
  CudaProbe p;
  const bool hardware = f.driverGpus > 0;
  p.present = true;
  p.devices = f.count == CudaCountAnswer::Devices ? f.deviceCount : 0;
  switch (f.count) {
    case CudaCountAnswer::InsufficientDriver:
      if (f.driverVersion > 0) {
        p.reason = "the NVIDIA driver supports CUDA " + version(f.driverVersion) + ", older than the CUDA " +
                   version(f.runtimeVersion) + " this build needs: update the driver";
        return p;
      }
      [[fallthrough]];
    case CudaCountAnswer::StubDriver:
      p.present = hardware;
      p.reason = hardware ? "the NVIDIA driver lists " + gpus(f.driverGpus) +
                                ", but its CUDA library (libcuda.so.1) is not installed"
                          : "no CUDA driver is installed";
      return p;
    case CudaCountAnswer::OtherError:
      p.present = hardware || f.driverVersion > 0;
      p.reason = "the CUDA runtime cannot start: " + f.countError;
      return p;
    case CudaCountAnswer::NoDevice:
    case CudaCountAnswer::Devices:
      break;
  }
  if (f.deviceCount <= 0) {
    p.present = hardware;
    p.reason = hardware ? hiddenReason(f) : "no CUDA device is visible";
    return p;
  }
  const std::string device = "cuda:" + std::to_string(f.ordinal);
  if (f.ordinal < 0 || f.ordinal >= f.deviceCount) {
    p.reason = "there is no CUDA device " + device + ": " + std::to_string(f.deviceCount) +
               (f.deviceCount == 1 ? " device is" : " devices are") + " visible (cuda:0" +
               (f.deviceCount > 1 ? " to cuda:" + std::to_string(f.deviceCount - 1) : std::string()) + ")";
    return p;
  }
  if (!f.propertiesError.empty()) {
    p.reason = "the properties of " + device + " cannot be read: " + f.propertiesError;
    return p;
  }
  const std::string named = f.name + " (" + device + ")";
  if (f.major * 10 + f.minor < kMinComputeCapability) {
    p.reason = named + " has compute capability " + std::to_string(f.major) + "." + std::to_string(f.minor) +
               ", below the " + std::to_string(kMinComputeCapability / 10) + "." +
               std::to_string(kMinComputeCapability % 10) + " this build needs";
    return p;
  }
  if (!f.contextError.empty()) {
    p.reason = named + " cannot be used: " + f.contextError;
    return p;
  }
  p.usable = true;
  return p;
}

void readSystemGpuFacts(CudaProbeFacts& f) {
  namespace fs = std::filesystem;
  std::error_code ec;
  // The kernel driver's GPUs: one directory per GPU under /proc, one device
  // file /dev/nvidiaN per GPU (a container may show either).
  int listed = 0, nodes = 0;
  for (fs::directory_iterator it("/proc/driver/nvidia/gpus", ec), end; !ec && it != end; it.increment(ec)) ++listed;
  ec.clear();
  for (fs::directory_iterator it("/dev", ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    if (name.size() > 6 && name.compare(0, 6, "nvidia") == 0 &&
        name.find_first_not_of("0123456789", 6) == std::string::npos)
      ++nodes;
  }
  f.driverGpus = listed > nodes ? listed : nodes;
  // MIG: capabilities/gpuN/mig/giK/ciJ for each compute instance.
  ec.clear();
  for (fs::directory_iterator gpu("/proc/driver/nvidia/capabilities", ec), end; !ec && gpu != end;
       gpu.increment(ec)) {
    std::error_code inner;
    const fs::path mig = gpu->path() / "mig";
    if (!fs::is_directory(mig, inner)) continue;
    f.migCapable = true;
    for (fs::directory_iterator gi(mig, inner), stop; !inner && gi != stop; gi.increment(inner)) {
      std::error_code deeper;
      for (fs::directory_iterator ci(gi->path(), deeper), last; !deeper && ci != last; ci.increment(deeper))
        if (ci->path().filename().string().compare(0, 2, "ci") == 0) ++f.migInstances;
    }
  }
  const char* visible = std::getenv("CUDA_VISIBLE_DEVICES");
  f.visibleDevicesSet = visible != nullptr;
  f.visibleDevices = visible != nullptr ? visible : "";
}

}  // namespace vemo
