// Whether the CUDA backend can run here: built with nvcc and a device of
// compute capability 7.5 or newer present.
#pragma once

namespace flowcore {

#if defined(VEMO_HAVE_CUDA)
bool cudaDeviceUsable();
#else
inline bool cudaDeviceUsable() { return false; }
#endif

}  // namespace flowcore
