// Set-up and tear-down of the CUDA backend. The stages live in
// cuda_stages.cu, cuda_convolve.cu and cuda_solver.cu, memory in
// cuda_memory.cu and the dot product in cuda_reduce.cu.
#include <cuda_runtime.h>

#include <cstdio>
#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"

namespace flowcore {

CudaBackend::CudaBackend() {
  // The row alignment that cudaMallocPitch applies: the pitch it gives a
  // one-float row.
  void* probe = nullptr;
  std::size_t pitchBytes = 0;
  VEMO_CUDA_CALL(cudaMallocPitch(&probe, &pitchBytes, sizeof(float), 1));
  VEMO_CUDA_CALL(cudaFree(probe));
  if (pitchBytes < sizeof(float) || pitchBytes % sizeof(float) != 0)
    cuda::refuseArguments("CudaBackend: unexpected row alignment of " + std::to_string(pitchBytes) + " bytes");
  pitchAlignment_ = static_cast<int>(pitchBytes);
  int device = 0;
  VEMO_CUDA_CALL(cudaGetDevice(&device));
  VEMO_CUDA_CALL(cudaDeviceGetAttribute(&maxTextureWidth_, cudaDevAttrMaxTexture2DWidth, device));
  VEMO_CUDA_CALL(cudaDeviceGetAttribute(&maxTextureHeight_, cudaDevAttrMaxTexture2DHeight, device));
}

CudaBackend::~CudaBackend() {
  // No exit from a destructor: failures here are ignored.
  releaseRunState();
  releaseTexture();
  for (auto& entry : masks_) cudaFree(entry.second);
  masks_.clear();
  for (float*& s : scratch_) {
    if (s != nullptr) cudaFree(s);
    s = nullptr;
  }
  if (rowSums_ != nullptr) cudaFree(rowSums_);
  rowSums_ = nullptr;
  if (cgScalars_ != nullptr) cudaFree(cgScalars_);
  cgScalars_ = nullptr;
  for (auto& entry : cache_) cudaFree(entry.second);
  cache_.clear();
}

std::size_t CudaBackend::availableBytes() const {
  std::size_t freeBytes = 0, totalBytes = 0;
  VEMO_CUDA_CALL(cudaMemGetInfo(&freeBytes, &totalBytes));
  // Blocks this backend keeps for reuse are available to it as well.
  return freeBytes + cachedBytes_;
}

}  // namespace flowcore
