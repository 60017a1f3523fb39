// Checks of CUDA runtime calls and kernel launches.
//
// A device failure cannot be recovered from: the message names the source
// file and line of the failing call and the runtime's text for the error;
// it is reported (standard error, or the caller's MessageCapture) and thrown
// as BackendError, which the programs turn into exit status 1 and the public
// API into vemo::DeviceError. Teardown (cudaFree, texture and array
// destruction in destructors and release()) is checked the same way but
// never throws and never ends the process: after an earlier failure its
// errors are that failure's echoes and pass silently; otherwise it reports
// once and marks the device failed. The runtime's own shutdown
// (cudaErrorCudartUnloading, when static objects die after it) passes
// silently, as the memory goes with it.
#pragma once

#include <cuda_runtime.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "backends/backend.h"
#include "common/device_failures.h"
#include "common/diagnostics.h"
#include "common/env_flag.h"

namespace vemo::cuda {

// Reports `text` and throws it as BackendError.
[[noreturn]] inline void failWith(const char* text) {
  noteDeviceFailure();
  reportf(stderr, "%s\n", text);
  throw BackendError(text);
}

// A runtime call returned `err`.
[[noreturn]] inline void failCall(cudaError_t err, const char* file, int line) {
  char text[512];
  std::snprintf(text, sizeof text, "Cuda error in file '%s' in line %i : %s.", file, line, cudaGetErrorString(err));
  failWith(text);
}

// A launch labelled `label` left the error `err`.
[[noreturn]] inline void failLaunch(const char* label, cudaError_t err, const char* file, int line) {
  char text[512];
  std::snprintf(text, sizeof text, "Cuda error: %s in file '%s' in line %i : %s.", label, file, line,
                cudaGetErrorString(err));
  failWith(text);
}

// The device cannot hold `bytes` more even with this backend's cached blocks
// given back: the run is refused (message on standard error, BackendError).
[[noreturn]] inline void refuseOutOfMemory(std::size_t bytes) {
  cudaGetLastError();  // the failed allocation's error is not sticky
  std::size_t freeBytes = 0, totalBytes = 0;
  cudaMemGetInfo(&freeBytes, &totalBytes);
  const double mib = 1024.0 * 1024.0;
  char text[200];
  std::snprintf(text, sizeof text,
                "the CUDA device is out of memory: %.1f MiB could not be allocated (%.1f of %.1f MiB free)",
                bytes / mib, freeBytes / mib, totalBytes / mib);
  reportf(stderr, "vemo: %s\n", text);
  throw BackendError(text);
}

// A teardown call returned `err`.
inline void checkTeardown(cudaError_t err, const char* file, int line) noexcept {
  if (err == cudaSuccess || err == cudaErrorCudartUnloading || deviceFailureSeen()) return;
  noteDeviceFailure();
  reportf(stderr, "Cuda error in file '%s' in line %i : %s.\n", file, line, cudaGetErrorString(err));
}

// VEMO_CUDA_SYNC=1: every launch check also waits for the device, so that a
// fault inside a kernel is reported at the launch that caused it rather than
// at a later call. Read once; off, it costs one test of a static. A wait is
// not allowed while a stream is being captured into a CUDA graph: with the
// switch on, work is launched directly instead of recorded.
inline bool syncAfterLaunches() {
  static const bool on = envFlag("VEMO_CUDA_SYNC");
  return on;
}

// The last error after (or, with a " begin" label, before) a launch, and
// under VEMO_CUDA_SYNC the error of the work itself.
inline void checkLastError(const char* label, const char* file, int line) {
  cudaError_t err = cudaGetLastError();
  if (err == cudaSuccess && syncAfterLaunches()) err = cudaDeviceSynchronize();
  if (err != cudaSuccess) failLaunch(label, err, file, line);
}

}  // namespace vemo::cuda

// Every runtime call goes through this macro.
#define VEMO_CUDA_CALL(call)                                                   \
  do {                                                                         \
    const cudaError_t vemoCudaErr_ = (call);                                   \
    if (vemoCudaErr_ != cudaSuccess)                                           \
      ::vemo::cuda::failCall(vemoCudaErr_, __FILE__, __LINE__);            \
  } while (0)

// Runtime calls in destructors and release(): never throws.
#define VEMO_CUDA_TEARDOWN(call) ::vemo::cuda::checkTeardown((call), __FILE__, __LINE__)

// After a kernel launch, with a short label naming it.
#define VEMO_CUDA_LAUNCHED(label) ::vemo::cuda::checkLastError((label), __FILE__, __LINE__)
