// Marks functions that are compiled for both the host and the device.
//
// Every per-pixel rule of the method is written once as an inline function
// tagged VEMO_HD. The CPU backend calls it from OpenMP loops; the CUDA backend
// calls it from kernels. Without nvcc the macro is empty and the header is
// plain C++.
#pragma once

#if defined(__CUDACC__)
#define VEMO_HD __host__ __device__
#define VEMO_DEVICE_CODE 1
#else
#define VEMO_HD
#endif

#define VEMO_INLINE VEMO_HD inline

// Precedes a VEMO_INLINE template that issues operations on an executor
// given as its template argument: the host's executor (Backend) has host
// functions only, a kernel's executor device functions only, and nvcc is
// told not to check the instantiation for the side it is never called on.
#if defined(__CUDACC__)
#define VEMO_EXECUTOR_TEMPLATE _Pragma("nv_exec_check_disable")
#else
#define VEMO_EXECUTOR_TEMPLATE
#endif
