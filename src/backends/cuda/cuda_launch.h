// Launch geometry shared by the CUDA stages: one thread per pixel in square
// blocks of kBlockSize x kBlockSize threads, a thread doing nothing outside
// the region it covers.
#pragma once

#include <cuda_runtime.h>

#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_check.h"
#include "pixel/convolve.h"

namespace vemo::cuda {

inline dim3 pixelGrid(int height, int width) {
  return dim3((width + kBlockSize - 1) / kBlockSize, (height + kBlockSize - 1) / kBlockSize);
}

inline dim3 pixelBlock() { return dim3(kBlockSize, kBlockSize); }

// pixelGrid() for a launch labelled `label`, refusing a region whose rows
// exceed the grid's second dimension (at most 65535 blocks).
inline dim3 checkedPixelGrid(const char* label, int height, int width) {
  if ((height + kBlockSize - 1) / kBlockSize > 65535)
    refuseArguments(std::string(label) + ": " + std::to_string(height) + " rows exceed the launch grid");
  return pixelGrid(height, width);
}

// Calls op(x, y) for every pixel of a height x width region. `Op` is a
// small struct of plain pointers and sizes with a device call operator.
template <class Op>
__global__ void pixelKernel(Op op, int height, int width) {
  const int x = blockIdx.x * blockDim.x + threadIdx.x;
  const int y = blockIdx.y * blockDim.y + threadIdx.y;
  if (x < width && y < height) op(x, y);
}

// Runs op over the region on `stream` (the default stream unless given) and
// checks the launch.
template <class Op>
void forEachPixel(const char* label, int height, int width, const Op& op, cudaStream_t stream = nullptr) {
  if (height < 1 || width < 1) return;
  pixelKernel<<<checkedPixelGrid(label, height, width), pixelBlock(), 0, stream>>>(op, height, width);
  VEMO_CUDA_LAUNCHED(label);
}

}  // namespace vemo::cuda
