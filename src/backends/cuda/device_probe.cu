// Gathers what the CUDA runtime says about the device asked for; the
// verdict is judgeCudaDevice's. Nothing here is checked with the fatal
// macros: a failure is a fact to report, not a reason to exit.
#include <cuda_runtime.h>

#include <string>

#include "backends/cuda/device_probe.h"

namespace vemo {

namespace {

CudaCountAnswer countAnswer(cudaError_t err) {
  switch (err) {
    case cudaSuccess: return CudaCountAnswer::Devices;
    case cudaErrorNoDevice: return CudaCountAnswer::NoDevice;
    case cudaErrorInsufficientDriver: return CudaCountAnswer::InsufficientDriver;
    case cudaErrorStubLibrary: return CudaCountAnswer::StubDriver;
    default: return CudaCountAnswer::OtherError;
  }
}

}  // namespace

void gatherCudaFacts(int ordinal, CudaProbeFacts& f) {
  f.ordinal = ordinal;
  cudaDriverGetVersion(&f.driverVersion);
  cudaRuntimeGetVersion(&f.runtimeVersion);
  const cudaError_t count = cudaGetDeviceCount(&f.deviceCount);
  cudaGetLastError();  // a failed probe leaves no error for the next check
  f.count = countAnswer(count);
  if (count != cudaSuccess) {
    f.countError = cudaGetErrorString(count);
    f.deviceCount = 0;
    return;
  }
  if (ordinal < 0 || ordinal >= f.deviceCount) return;
  cudaDeviceProp prop{};
  const cudaError_t props = cudaGetDeviceProperties(&prop, ordinal);
  if (props != cudaSuccess) {
    cudaGetLastError();
    f.propertiesError = cudaGetErrorString(props);
    return;
  }
  f.name = prop.name;
  f.major = prop.major;
  f.minor = prop.minor;
  if (f.major * 10 + f.minor < kMinComputeCapability) return;
  // Makes the context now, so that a device that is busy (exclusive mode) or
  // out of memory is found here rather than at the first allocation.
  // The calling thread's current device is left as it was.
  int current = 0;
  cudaGetDevice(&current);
  cudaError_t ctx = cudaSetDevice(ordinal);
  if (ctx == cudaSuccess) ctx = cudaFree(nullptr);
  if (ctx != cudaSuccess) {
    cudaGetLastError();
    f.contextError = cudaGetErrorString(ctx);
  }
  cudaSetDevice(current);
  cudaGetLastError();
}

}  // namespace vemo
