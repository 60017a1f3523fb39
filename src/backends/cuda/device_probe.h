// Whether the CUDA backend can run here: built with nvcc, a device of
// compute capability 7.5 or newer present, and a context can be made on it.
#pragma once

#include <string>

namespace flowcore {

struct CudaProbe {
  // No CUDA device at all (or no driver, or a build without CUDA): the
  // normal case on a machine without a GPU, worth no message.
  bool present = false;
  bool usable = false;
  // How many CUDA devices the runtime sees (the backend runs on device 0:
  // callers spread work over several by CUDA_VISIBLE_DEVICES).
  int devices = 0;
  // When a device is present but unusable: why, in a few words.
  std::string reason;
};

// Probes once per process; later calls return the first answer.
#if defined(VEMO_HAVE_CUDA)
const CudaProbe& probeCudaDevice();
#else
inline const CudaProbe& probeCudaDevice() {
  static const CudaProbe none;
  return none;
}
#endif

inline bool cudaDeviceUsable() { return probeCudaDevice().usable; }

}  // namespace flowcore
