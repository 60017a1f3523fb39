// Checks of CUDA runtime calls and kernel launches.
//
// A device failure cannot be recovered from: the message names the source
// file and line of the failing call and the runtime's text for the error,
// then the process ends with status 1.
#pragma once

#include <cuda_runtime.h>

#include <cstdio>
#include <cstdlib>

namespace flowcore::cuda {

// A runtime call returned `err`.
[[noreturn]] inline void failCall(cudaError_t err, const char* file, int line) {
  std::fprintf(stderr, "Cuda error in file '%s' in line %i : %s.\n", file, line, cudaGetErrorString(err));
  std::exit(1);
}

// A launch labelled `label` left the error `err`.
[[noreturn]] inline void failLaunch(const char* label, cudaError_t err, const char* file, int line) {
  std::fprintf(stderr, "Cuda error: %s in file '%s' in line %i : %s.\n", label, file, line, cudaGetErrorString(err));
  std::exit(1);
}

// The last error after (or, with a " begin" label, before) a launch.
inline void checkLastError(const char* label, const char* file, int line) {
  const cudaError_t err = cudaGetLastError();
  if (err != cudaSuccess) failLaunch(label, err, file, line);
}

}  // namespace flowcore::cuda

// Every runtime call goes through this macro.
#define VEMO_CUDA_CALL(call)                                                   \
  do {                                                                         \
    const cudaError_t vemoCudaErr_ = (call);                                   \
    if (vemoCudaErr_ != cudaSuccess)                                           \
      ::flowcore::cuda::failCall(vemoCudaErr_, __FILE__, __LINE__);            \
  } while (0)

// After a kernel launch, with a short label naming it.
#define VEMO_CUDA_LAUNCHED(label) ::flowcore::cuda::checkLastError((label), __FILE__, __LINE__)
