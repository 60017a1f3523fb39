// Whether a CUDA device can run the backend, decided from facts that the
// probe gathers (device_probe.cu asks the CUDA runtime, readSystemGpuFacts
// looks at the NVIDIA driver's files and the environment). The decision is a
// plain function of those facts, so that every case can be checked on a
// machine without the hardware.
#pragma once

#include <string>

namespace vemo {

struct CudaProbe {
  // A GPU is there (the driver lists one, or the CUDA driver is installed and
  // answers): an unusable one is worth a line saying why. False on a machine
  // without a GPU or driver, or in a build without CUDA: the normal case,
  // worth no message unless CUDA was asked for.
  bool present = false;
  bool usable = false;
  // How many CUDA devices the runtime sees (cuda:0 to cuda:devices-1).
  int devices = 0;
  // Why the device cannot be used, in one line (also set when nothing is
  // present, for a request that named CUDA).
  std::string reason;
};

// What cudaGetDeviceCount answered.
enum class CudaCountAnswer {
  Devices,             // success (the count may still be 0)
  NoDevice,            // cudaErrorNoDevice
  InsufficientDriver,  // cudaErrorInsufficientDriver: no driver, or one older than the runtime
  StubDriver,          // cudaErrorStubLibrary: the toolkit's stub libcuda, no real driver
  OtherError,          // anything else; countError holds the runtime's text
};

struct CudaProbeFacts {
  // From the CUDA runtime. Versions are 1000 * major + 10 * minor.
  int driverVersion = 0;   // what the driver supports; 0 when no CUDA driver library is installed
  int runtimeVersion = 0;  // the runtime this build carries
  CudaCountAnswer count = CudaCountAnswer::NoDevice;
  std::string countError;
  int deviceCount = 0;
  int ordinal = 0;  // the device asked for (cuda:N)
  // Of that device, when it exists: set to the runtime's text when its
  // properties cannot be read, or when no context can be made on it.
  std::string propertiesError;
  std::string name;
  int major = 0, minor = 0;
  std::string contextError;

  // From the system, outside CUDA.
  int driverGpus = 0;           // GPUs the NVIDIA kernel driver lists (/proc, /dev nodes)
  bool migCapable = false;      // one of them exposes MIG capabilities
  int migInstances = 0;         // MIG compute instances the driver lists
  bool visibleDevicesSet = false;
  std::string visibleDevices;   // CUDA_VISIBLE_DEVICES
};

// The oldest compute capability the build's kernels run on.
constexpr int kMinComputeCapability = 75;

CudaProbe judgeCudaDevice(const CudaProbeFacts& facts);

// Fills the system fields of `facts` from /proc/driver/nvidia, /dev and the
// environment.
void readSystemGpuFacts(CudaProbeFacts& facts);

}  // namespace vemo
