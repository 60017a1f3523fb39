// Whether the CUDA backend can run here: built with nvcc, the device asked
// for present with compute capability 7.5 or newer, and a context can be
// made on it. The decision itself is judgeCudaDevice (device_verdict.h).
#pragma once

#include "backends/cuda/device_verdict.h"

namespace vemo {

// Probes device `ordinal` (cuda:N) once per process; later calls return the
// first answer. In a build without CUDA: nothing present.
const CudaProbe& probeCudaDevice(int ordinal = 0);

inline bool cudaDeviceUsable(int ordinal = 0) { return probeCudaDevice(ordinal).usable; }

#if defined(VEMO_HAVE_CUDA)
// Fills the CUDA runtime's fields of `facts` for device `ordinal`
// (device_probe.cu).
void gatherCudaFacts(int ordinal, CudaProbeFacts& facts);
#endif

}  // namespace vemo
