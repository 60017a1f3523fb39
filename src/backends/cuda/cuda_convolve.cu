// Separable filters of the CUDA backend: one-dimensional correlation along x
// or y with a host mask.
//
// Two paths, chosen as on the CPU backend, which computes the same values:
//  - short masks (length below 8) with distinct input and output: a block
//    stages its 16 lines of 16 + 2h samples in shared memory, the entries
//    following the tile rule of pixel/convolve.h at the line ends;
//  - long masks, or a pass that writes over its own input: the input is
//    copied into a CUDA array read through a texture object with point
//    filtering and clamp addressing, so that samples outside the image take
//    the nearest edge texel. The array and its texture are kept for the next
//    call of the same size. Planes beyond the device's texture size read
//    the same clamped samples from a copy in global memory.
// Masks are uploaded once and kept on the device, keyed by their taps, so a
// filter call does not wait for a host copy; the upload itself passes the
// taps as kernel arguments, so not even the first call waits.
#include <cuda_runtime.h>

#include <cstddef>
#include <string>
#include <vector>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_launch.h"
#include "method/filter_masks.h"
#include "pixel/convolve.h"

namespace vemo {

namespace {

using cuda::checkPlane;
using cuda::refuseArguments;

// Short-mask pass. Lines run along x (kAlongX) or y; a block covers 16
// positions of 16 lines, and line l of the block keeps its tile of
// 16 + 2h entries at tile + l * span.
template <bool kAlongX>
__device__ void convolveSmall(float* out, const float* in, int height, int width, int pitch, const float* mask,
                              int length) {
  extern __shared__ float tile[];
  const int h = length / 2;
  const int span = kBlockSize + 2 * h;
  const int x = blockIdx.x * kBlockSize + threadIdx.x;
  const int y = blockIdx.y * kBlockSize + threadIdx.y;
  const int lane = kAlongX ? threadIdx.x : threadIdx.y;            // position within the block's lines
  const int lineInBlock = kAlongX ? threadIdx.y : threadIdx.x;     // which of the block's lines
  const bool lineInside = kAlongX ? y < height : x < width;
  const int blockStart = (kAlongX ? blockIdx.x : blockIdx.y) * kBlockSize;
  const float* line = kAlongX ? in + static_cast<std::size_t>(y) * pitch : in + x;
  const int step = kAlongX ? 1 : pitch;
  const int n = kAlongX ? width : height;
  float* own = tile + lineInBlock * span;
  if (lineInside)
    for (int t = lane; t < span; t += kBlockSize) own[t] = smallTileEntry(line, step, n, blockStart, h, t);
  __syncthreads();
  if (x >= width || y >= height) return;
  float sum = 0.0f;
  for (int j = 0; j < length; ++j) sum = fmaf(mask[j], own[lane + j], sum);
  out[static_cast<std::size_t>(y) * pitch + x] = sum;
}

__global__ void convolveXsmall_kernel(float* out, const float* in, int height, int width, int pitch,
                                      const float* mask, int length) {
  convolveSmall<true>(out, in, height, width, pitch, mask, length);
}

__global__ void convolveYsmall_kernel(float* out, const float* in, int height, int width, int pitch,
                                      const float* mask, int length) {
  convolveSmall<false>(out, in, height, width, pitch, mask, length);
}

// Samples of the texture along row y or column x: texel (c, r) sits at
// (c + 0.5, r + 0.5); clamp addressing does the border rule.
struct TextureRow {
  cudaTextureObject_t tex;
  float y;
  __device__ float operator()(int p) const { return tex2D<float>(tex, static_cast<float>(p) + 0.5f, y); }
};

struct TextureColumn {
  cudaTextureObject_t tex;
  float x;
  __device__ float operator()(int p) const { return tex2D<float>(tex, x, static_cast<float>(p) + 0.5f); }
};

__global__ void Convolve2dSep_kernel(float* out, cudaTextureObject_t tex, int height, int width, int pitch,
                                      const float* mask, int length, bool alongX) {
  const int x = blockIdx.x * kBlockSize + threadIdx.x;
  const int y = blockIdx.y * kBlockSize + threadIdx.y;
  if (x >= width || y >= height) return;
  out[static_cast<std::size_t>(y) * pitch + x] =
      alongX ? convolveTapsAt(TextureRow{tex, static_cast<float>(y) + 0.5f}, x, mask, length)
             : convolveTapsAt(TextureColumn{tex, static_cast<float>(x) + 0.5f}, y, mask, length);
}

// Fallback for planes larger than the device's textures: the same clamped
// samples, read from a copy in global memory.
__global__ void clampedConvolveKernel(float* out, const float* in, int height, int width, int pitch,
                                      const float* mask, int length, bool alongX) {
  const int x = blockIdx.x * kBlockSize + threadIdx.x;
  const int y = blockIdx.y * kBlockSize + threadIdx.y;
  if (x >= width || y >= height) return;
  out[static_cast<std::size_t>(y) * pitch + x] =
      alongX ? convolveClampAt(in + static_cast<std::size_t>(y) * pitch, 1, width, x, mask, length)
             : convolveClampAt(in + x, pitch, height, y, mask, length);
}

// Up to kTapChunk taps, carried by value in a launch.
constexpr int kTapChunk = 64;
struct TapChunk {
  float taps[kTapChunk];
};

__global__ void storeTapsKernel(float* device, TapChunk chunk, int count) {
  const int j = threadIdx.x;
  if (j < count) device[j] = chunk.taps[j];
}

void checkMask(const char* stage, const float* mask, int length) {
  if (mask == nullptr || length < 1 || length > kMaxMaskLength)
    refuseArguments(std::string(stage) + ": mask length " + std::to_string(length) + " outside 1.." +
                    std::to_string(kMaxMaskLength));
}

}  // namespace

const float* CudaBackend::deviceMask(const float* mask, int length) {
  std::vector<float> taps(mask, mask + length);
  auto found = masks_.find(taps);
  if (found != masks_.end()) return found->second;
  // Runs use a handful of masks; a caller that makes new ones without end
  // gets the store emptied now and then (after the work that reads it).
  if (masks_.size() >= kMaxStoredMasks) {
    VEMO_CUDA_CALL(cudaDeviceSynchronize());
    for (auto& entry : masks_) VEMO_CUDA_CALL(cudaFree(entry.second));
    masks_.clear();
    maskBytes_ = 0;
  }
  const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(float);
  float* device = static_cast<float*>(deviceAlloc(bytes));
  try {
    masks_.emplace(std::move(taps), device);
  } catch (...) {
    VEMO_CUDA_TEARDOWN(cudaFree(device));
    throw;
  }
  maskBytes_ += bytes;
  // A host-to-device cudaMemcpy from pageable memory would wait for the
  // device; kernel arguments are copied when the launch is issued.
  for (int first = 0; first < length; first += kTapChunk) {
    TapChunk chunk{};
    const int count = length - first < kTapChunk ? length - first : kTapChunk;
    for (int j = 0; j < count; ++j) chunk.taps[j] = mask[first + j];
    storeTapsKernel<<<1, kTapChunk, 0, stream()>>>(device + first, chunk, count);
    VEMO_CUDA_LAUNCHED("mask upload");
  }
  return device;
}

unsigned long long CudaBackend::textureOf(const float* in, int height, int width, int pitch) {
  if (textureArray_ == nullptr || textureWidth_ != width || textureHeight_ != height) {
    releaseTexture();
    cudaChannelFormatDesc desc = cudaCreateChannelDesc<float>();
    cudaArray_t array = nullptr;
    cudaError_t err = cudaMallocArray(&array, &desc, width, height);
    if (err == cudaErrorMemoryAllocation && !cache_.empty()) {
      cudaGetLastError();
      emptyCache();
      err = cudaMallocArray(&array, &desc, width, height);
    }
    if (err == cudaErrorMemoryAllocation)
      cuda::refuseOutOfMemory(static_cast<std::size_t>(width) * height * sizeof(float));
    VEMO_CUDA_CALL(err);
    textureArray_ = array;
    textureWidth_ = width;
    textureHeight_ = height;
    cudaResourceDesc resource{};
    resource.resType = cudaResourceTypeArray;
    resource.res.array.array = array;
    cudaTextureDesc texture{};
    texture.addressMode[0] = cudaAddressModeClamp;
    texture.addressMode[1] = cudaAddressModeClamp;
    texture.filterMode = cudaFilterModePoint;
    texture.readMode = cudaReadModeElementType;
    texture.normalizedCoords = 0;
    cudaTextureObject_t object = 0;
    VEMO_CUDA_CALL(cudaCreateTextureObject(&object, &resource, &texture, nullptr));
    texture_ = object;
  }
  // Stream-ordered: the copy waits for earlier readers of the array.
  VEMO_CUDA_CALL(cudaMemcpy2DToArrayAsync(static_cast<cudaArray_t>(textureArray_), 0, 0, in,
                                          static_cast<std::size_t>(pitch) * sizeof(float), width * sizeof(float),
                                          height, cudaMemcpyDeviceToDevice, stream()));
  return texture_;
}

void CudaBackend::releaseTexture() noexcept {
  if (textureArray_ == nullptr) return;
  // The kernels that read the texture must be done before it goes.
  VEMO_CUDA_TEARDOWN(cudaDeviceSynchronize());
  VEMO_CUDA_TEARDOWN(cudaDestroyTextureObject(texture_));
  VEMO_CUDA_TEARDOWN(cudaFreeArray(static_cast<cudaArray_t>(textureArray_)));
  textureArray_ = nullptr;
  texture_ = 0;
  textureWidth_ = textureHeight_ = 0;
}

void CudaBackend::convolve(bool alongX, float* out, const float* in, int height, int width, int pitch,
                           const float* mask, int length) {
  const char* stage = alongX ? "gConvolveX" : "gConvolveY";
  checkPlane(stage, height, width, pitch);
  checkMask(stage, mask, length);
  const float* taps = deviceMask(mask, length);
  const dim3 grid = cuda::checkedPixelGrid(stage, height, width);
  if (out != in && length < kSmallMaskLimit) {
    // An error left by earlier work is told apart from one of this launch.
    VEMO_CUDA_LAUNCHED(alongX ? "small x conv begin" : "small y conv begin");
    const std::size_t shared = static_cast<std::size_t>(kBlockSize) * (kBlockSize + 2 * (length / 2)) * sizeof(float);
    if (alongX)
      convolveXsmall_kernel<<<grid, cuda::pixelBlock(), shared, stream()>>>(out, in, height, width, pitch, taps,
                                                                            length);
    else
      convolveYsmall_kernel<<<grid, cuda::pixelBlock(), shared, stream()>>>(out, in, height, width, pitch, taps,
                                                                            length);
    VEMO_CUDA_LAUNCHED(alongX ? "small x conv" : "small y conv");
    return;
  }
  VEMO_CUDA_LAUNCHED(alongX ? "x conv begin" : "y conv begin");
  if (width > maxTextureWidth_ || height > maxTextureHeight_) {
    float* source = scratch(1, static_cast<std::size_t>(pitch) * height);
    copy(source, in, static_cast<std::size_t>(pitch) * height);
    clampedConvolveKernel<<<grid, cuda::pixelBlock(), 0, stream()>>>(out, source, height, width, pitch, taps, length,
                                                                     alongX);
    VEMO_CUDA_LAUNCHED(alongX ? "x conv" : "y conv");
    return;
  }
  const cudaTextureObject_t tex = textureOf(in, height, width, pitch);
  Convolve2dSep_kernel<<<grid, cuda::pixelBlock(), 0, stream()>>>(out, tex, height, width, pitch, taps, length,
                                                                    alongX);
  VEMO_CUDA_LAUNCHED(alongX ? "x conv" : "y conv");
}

void CudaBackend::convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                            int length) {
  convolve(true, out, in, height, width, pitch, mask, length);
}

void CudaBackend::convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                            int length) {
  convolve(false, out, in, height, width, pitch, mask, length);
}

}  // namespace vemo
