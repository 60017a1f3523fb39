// Device memory of the CUDA backend: allocation with accounting, pitches,
// transfers and the backend's own scratch.
#include <cuda_runtime.h>

#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "pixel/hog.h"
#include "method/filter_masks.h"

namespace vemo {

using cuda::refuseArguments;

namespace {
// Allocation granule: sizes are rounded up to it so that released blocks
// fit later requests of nearly the same size.
constexpr std::size_t kGranuleBytes = 256;
// A stored filter mask holds at most this much.
constexpr std::size_t kMaskBytesBound = kMaxMaskLength * sizeof(float);
}  // namespace

Buffer CudaBackend::allocate(std::size_t floats) {
  if (floats > (static_cast<std::size_t>(-1) / 2) / sizeof(float))
    refuseArguments("CudaBackend: allocation size overflows");
  // Never zero bytes, so that every buffer has its own address.
  const std::size_t bytes =
      ((floats > 0 ? floats : 1) * sizeof(float) + kGranuleBytes - 1) / kGranuleBytes * kGranuleBytes;
  float* data = nullptr;
  auto cached = cache_.find(bytes);
  if (cached != cache_.end()) {
    data = cached->second;
    cache_.erase(cached);
    cachedBytes_ -= bytes;
  } else {
    data = static_cast<float*>(deviceAlloc(bytes));
  }
  try {
    sizes_.emplace(data, bytes);
  } catch (...) {
    VEMO_CUDA_TEARDOWN(cudaFree(data));
    throw;
  }
  // Zero-filled, fresh or reused, as on the CPU backend: no run depends on
  // leftover memory.
  VEMO_CUDA_CALL(cudaMemset(data, 0, bytes));
  noteAllocated(bytes);
  return Buffer(this, data, floats);
}

void CudaBackend::release(float* data) noexcept {
  auto it = sizes_.find(data);
  if (it == sizes_.end()) return;  // not ours: nothing to free
  const std::size_t bytes = it->second;
  noteReleased(bytes);
  sizes_.erase(it);
  if (cachedBytes_ + bytes <= peakBytes()) {
    try {
      cache_.emplace(bytes, data);
      cachedBytes_ += bytes;
      return;
    } catch (...) {
      // No room to remember the block: give it back instead.
    }
  }
  VEMO_CUDA_TEARDOWN(cudaFree(data));
}

void* CudaBackend::deviceAlloc(std::size_t bytes) {
  void* p = nullptr;
  cudaError_t err = cudaMalloc(&p, bytes);
  if (err == cudaErrorMemoryAllocation && !cache_.empty()) {
    cudaGetLastError();  // not sticky: cleared so that no later check sees it
    emptyCache();
    err = cudaMalloc(&p, bytes);
  }
  if (err == cudaErrorMemoryAllocation) cuda::refuseOutOfMemory(bytes);
  VEMO_CUDA_CALL(err);
  return p;
}

void CudaBackend::emptyCache() {
  for (auto& entry : cache_) VEMO_CUDA_CALL(cudaFree(entry.second));
  cache_.clear();
  cachedBytes_ = 0;
}

std::size_t CudaBackend::heldBytes() const {
  std::size_t bytes = rowSumCapacity_ * sizeof(double) + maskBytes_ + (cgScalars_ != nullptr ? sizeof(CgScalars) : 0);
  for (std::size_t floats : scratchFloats_) bytes += floats * sizeof(float);
  if (textureArray_ != nullptr)
    bytes += static_cast<std::size_t>(pitchFor(textureWidth_)) * textureHeight_ * sizeof(float);
  return bytes;
}

std::size_t CudaBackend::availableBytes() const {
  std::size_t freeBytes = 0, totalBytes = 0;
  VEMO_CUDA_CALL(cudaMemGetInfo(&freeBytes, &totalBytes));
  return freeBytes + cachedBytes_ + heldBytes();
}

Backend::RunOverhead CudaBackend::runOverhead(int height, int width, int pitch, int channels) const {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height * sizeof(float);
  RunOverhead o;
  // computeHOG's gradients and bins, or computeConfidence's gradients and
  // tensor entries, and sum2D's row sums; one at a time.
  const std::size_t hogPlanes = 2 + kHogBins, confidencePlanes = 2 * static_cast<std::size_t>(channels) + 5;
  o.matchingScratch = (hogPlanes > confidencePlanes ? hogPlanes : confidencePlanes) * plane +
                      static_cast<std::size_t>(height) * sizeof(float);
  // The filter texture's array of a full plane (or, beyond the texture
  // limits, its copy in scratch); the row sums of a two-plane vector; the
  // matching's six integer arrays of one entry per 4 x 4 grid cell at most;
  // the mask store at its bound; the solver scalars.
  const std::size_t gridPoints = static_cast<std::size_t>((width + 3) / 4) * ((height + 3) / 4);
  o.held = plane + (2 * static_cast<std::size_t>(height) + 1) * sizeof(double) + 6 * gridPoints * sizeof(int) +
           kMaxStoredMasks * kMaskBytesBound + sizeof(CgScalars);
  return o;
}

int CudaBackend::pitchFor(int width) const {
  if (width < 1) refuseArguments("CudaBackend: invalid image width " + std::to_string(width));
  const long long bytes = static_cast<long long>(width) * static_cast<long long>(sizeof(float));
  const long long aligned = (bytes + pitchAlignment_ - 1) / pitchAlignment_ * pitchAlignment_;
  const long long pitch = aligned / static_cast<long long>(sizeof(float));
  if (pitch > 0x7fffffffLL) refuseArguments("CudaBackend: image width " + std::to_string(width) + " too large");
  return static_cast<int>(pitch);
}

void CudaBackend::upload(float* dst, int dstPitch, const float* src, int width, int rows) {
  if (rows < 1 || width < 1) return;
  if (dstPitch < width)
    refuseArguments("CudaBackend::upload: pitch " + std::to_string(dstPitch) + " below width " +
                    std::to_string(width));
  VEMO_CUDA_CALL(cudaMemcpy2D(dst, static_cast<std::size_t>(dstPitch) * sizeof(float), src, width * sizeof(float),
                              width * sizeof(float), rows, cudaMemcpyHostToDevice));
}

void CudaBackend::download(float* dst, const float* src, int srcPitch, int width, int rows) {
  if (rows < 1 || width < 1) return;
  if (srcPitch < width)
    refuseArguments("CudaBackend::download: pitch " + std::to_string(srcPitch) + " below width " +
                    std::to_string(width));
  VEMO_CUDA_CALL(cudaMemcpy2D(dst, width * sizeof(float), src, static_cast<std::size_t>(srcPitch) * sizeof(float),
                              width * sizeof(float), rows, cudaMemcpyDeviceToHost));
}

// cudaMemcpy leaves overlapping ranges undefined: those go through scratch,
// so that copy() behaves like memmove as on the CPU backend.
void CudaBackend::copy(float* dst, const float* src, std::size_t floats) {
  if (floats == 0 || dst == src) return;
  const bool overlap = dst < src + floats && src < dst + floats;
  const std::size_t bytes = floats * sizeof(float);
  // Stream-ordered copies (the host does not wait), which a graph capture
  // can record.
  if (!overlap) {
    VEMO_CUDA_CALL(cudaMemcpyAsync(dst, src, bytes, cudaMemcpyDeviceToDevice, stream()));
    return;
  }
  float* staging = scratch(1, floats);
  VEMO_CUDA_CALL(cudaMemcpyAsync(staging, src, bytes, cudaMemcpyDeviceToDevice, stream()));
  VEMO_CUDA_CALL(cudaMemcpyAsync(dst, staging, bytes, cudaMemcpyDeviceToDevice, stream()));
}

void CudaBackend::clear(float* dst, std::size_t floats) {
  if (floats > 0) VEMO_CUDA_CALL(cudaMemsetAsync(dst, 0, floats * sizeof(float), stream()));
}

void CudaBackend::synchronize() {
  VEMO_CUDA_CALL(cudaDeviceSynchronize());
  releaseRetired();
}

float* CudaBackend::scratch(int slot, std::size_t floats) {
  if (floats > scratchFloats_[slot]) {
    if (scratch_[slot] != nullptr) VEMO_CUDA_CALL(cudaFree(scratch_[slot]));
    scratch_[slot] = nullptr;
    scratchFloats_[slot] = 0;
    scratch_[slot] = static_cast<float*>(deviceAlloc(floats * sizeof(float)));
    scratchFloats_[slot] = floats;
  }
  return scratch_[slot];
}

double* CudaBackend::rowSums(int rows) {
  // One extra entry holds the total. The buffer grows as the pyramid's
  // levels grow; the outgrown one may still be read by queued kernels, and
  // cudaFree would wait for them, so it is kept until the device is idle.
  if (rows + 1 > rowSumCapacity_) {
    if (rowSums_ != nullptr) retiredRowSums_.push_back(rowSums_);
    rowSums_ = nullptr;
    rowSumCapacity_ = 0;
    const int capacity = rows + 1 > 1024 ? rows + 1 : 1024;
    rowSums_ = static_cast<double*>(deviceAlloc(static_cast<std::size_t>(capacity) * sizeof(double)));
    rowSumCapacity_ = capacity;
  }
  return rowSums_;
}

void CudaBackend::releaseRetired() noexcept {
  for (double* p : retiredRowSums_) VEMO_CUDA_TEARDOWN(cudaFree(p));
  retiredRowSums_.clear();
}

}  // namespace vemo
