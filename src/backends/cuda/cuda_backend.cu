// Set-up and tear-down of the CUDA backend. The stages live in
// cuda_stages.cu, cuda_convolve.cu and cuda_solver.cu, memory in
// cuda_memory.cu and the dot product in cuda_reduce.cu.
#include <cuda_runtime.h>

#include <cstdio>
#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"

namespace vemo {

void CudaBackend::bindToCallingThread() { VEMO_CUDA_CALL(cudaSetDevice(device_)); }

CudaBackend::CudaBackend(int device) : device_(device) {
  VEMO_CUDA_CALL(cudaSetDevice(device));
  // The row alignment that cudaMallocPitch applies: the pitch it gives a
  // one-float row.
  void* probe = nullptr;
  std::size_t pitchBytes = 0;
  VEMO_CUDA_CALL(cudaMallocPitch(&probe, &pitchBytes, sizeof(float), 1));
  VEMO_CUDA_CALL(cudaFree(probe));
  if (pitchBytes < sizeof(float) || pitchBytes % sizeof(float) != 0)
    cuda::refuseArguments("CudaBackend: unexpected row alignment of " + std::to_string(pitchBytes) + " bytes");
  pitchAlignment_ = static_cast<int>(pitchBytes);
  VEMO_CUDA_CALL(cudaDeviceGetAttribute(&maxTextureWidth_, cudaDevAttrMaxTexture2DWidth, device));
  VEMO_CUDA_CALL(cudaDeviceGetAttribute(&maxTextureHeight_, cudaDevAttrMaxTexture2DHeight, device));
}

// Every release is checked; a failure ends the process (cuda_check.h).
CudaBackend::~CudaBackend() {
  releaseRunState();
  releaseTexture();
  for (auto& entry : masks_) VEMO_CUDA_TEARDOWN(cudaFree(entry.second));
  masks_.clear();
  for (float*& s : scratch_) {
    if (s != nullptr) VEMO_CUDA_TEARDOWN(cudaFree(s));
    s = nullptr;
  }
  if (rowSums_ != nullptr) VEMO_CUDA_TEARDOWN(cudaFree(rowSums_));
  rowSums_ = nullptr;
  if (cgScalars_ != nullptr) VEMO_CUDA_TEARDOWN(cudaFree(cgScalars_));
  cgScalars_ = nullptr;
  for (auto& entry : cache_) VEMO_CUDA_TEARDOWN(cudaFree(entry.second));
  cache_.clear();
}

}  // namespace vemo
