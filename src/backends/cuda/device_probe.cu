// Finds out whether a usable CUDA device is present.
#include <cuda_runtime.h>

#include <string>

#include "backends/cuda/device_probe.h"

namespace flowcore {

namespace {

CudaProbe probe() {
  CudaProbe result;
  int count = 0;
  const cudaError_t err = cudaGetDeviceCount(&count);
  if (err == cudaErrorNoDevice || err == cudaErrorInsufficientDriver || (err == cudaSuccess && count == 0)) {
    cudaGetLastError();  // clear the "no device" error
    return result;
  }
  result.present = true;
  result.devices = count;
  if (err != cudaSuccess) {
    cudaGetLastError();
    result.reason = std::string("the CUDA driver reports: ") + cudaGetErrorString(err);
    return result;
  }
  cudaDeviceProp prop{};
  if (cudaGetDeviceProperties(&prop, 0) != cudaSuccess) {
    cudaGetLastError();
    result.reason = "the properties of CUDA device 0 cannot be read";
    return result;
  }
  if (prop.major * 10 + prop.minor < 75) {
    result.reason = std::string(prop.name) + " has compute capability " + std::to_string(prop.major) + "." +
                    std::to_string(prop.minor) + ", below the 7.5 this build needs";
    return result;
  }
  // Makes the context now, so that a device that is busy (exclusive mode) or
  // out of memory is found here rather than at the first allocation.
  const cudaError_t ctx = cudaFree(nullptr);
  if (ctx != cudaSuccess) {
    cudaGetLastError();
    result.reason = std::string(prop.name) + " cannot be used: " + cudaGetErrorString(ctx);
    return result;
  }
  result.usable = true;
  return result;
}

}  // namespace

const CudaProbe& probeCudaDevice() {
  static const CudaProbe result = probe();
  return result;
}

}  // namespace flowcore
