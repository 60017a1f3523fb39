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
