// Finds out whether a usable CUDA device is present.
#include <cuda_runtime.h>

#include "backends/cuda/device_probe.h"

namespace flowcore {

bool cudaDeviceUsable() {
  int count = 0;
  if (cudaGetDeviceCount(&count) != cudaSuccess || count == 0) {
    cudaGetLastError();  // clear the sticky "no device" error
    return false;
  }
  cudaDeviceProp prop{};
  if (cudaGetDeviceProperties(&prop, 0) != cudaSuccess) return false;
  return prop.major * 10 + prop.minor >= 75;
}

}  // namespace flowcore
