// Deterministic dot product of the CUDA backend.
//
// The order of every addition is fixed by the data layout alone (rows,
// thread indices, a fixed tree), never by which block runs first, so the same
// data gives the same value on every call and on every device.
#include <cuda_runtime.h>

#include <cstddef>

#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"

namespace flowcore {

namespace {

constexpr int kReduceThreads = 256;

// Adds the kReduceThreads values of `s` by halving; the total ends in s[0].
__device__ void treeSum(double* s) {
  const int t = threadIdx.x;
  __syncthreads();
  for (int half = kReduceThreads / 2; half > 0; half >>= 1) {
    if (t < half) s[t] += s[t + half];
    __syncthreads();
  }
}

// Block r: sum over row r of the float products x[i] * y[i], widened to
// double. Thread t takes columns t, t + 256, ... in order.
__global__ void rowDotKernel(const float* x, const float* y, int width, int pitch, double* rowSums) {
  __shared__ double s[kReduceThreads];
  const std::size_t o = static_cast<std::size_t>(blockIdx.x) * pitch;
  double sum = 0.0;
  for (int c = threadIdx.x; c < width; c += kReduceThreads) sum += static_cast<double>(x[o + c] * y[o + c]);
  s[threadIdx.x] = sum;
  treeSum(s);
  if (threadIdx.x == 0) rowSums[blockIdx.x] = s[0];
}

// One block: thread t adds the rows [rows t / 256, rows (t + 1) / 256) in
// order, then the 256 runs are added by the tree. The total goes to
// rowSums[rows].
__global__ void combineRowsKernel(double* rowSums, int rows) {
  __shared__ double s[kReduceThreads];
  const int t = threadIdx.x;
  const int r0 = static_cast<int>(static_cast<long long>(rows) * t / kReduceThreads);
  const int r1 = static_cast<int>(static_cast<long long>(rows) * (t + 1) / kReduceThreads);
  double sum = 0.0;
  for (int r = r0; r < r1; ++r) sum += rowSums[r];
  s[t] = sum;
  treeSum(s);
  if (t == 0) rowSums[rows] = s[0];
}

}  // namespace

float CudaBackend::dot(const float* x, const float* y, int rows, int width, int pitch) {
  if (rows < 1 || width < 1) return 0.0f;
  double* sums = rowSums(rows);
  rowDotKernel<<<rows, kReduceThreads>>>(x, y, width, pitch, sums);
  VEMO_CUDA_LAUNCHED("dot rows");
  combineRowsKernel<<<1, kReduceThreads>>>(sums, rows);
  VEMO_CUDA_LAUNCHED("dot combine");
  double total = 0.0;
  // A blocking copy: it waits for both kernels.
  VEMO_CUDA_CALL(cudaMemcpy(&total, sums + rows, sizeof total, cudaMemcpyDeviceToHost));
  return static_cast<float>(total);
}

}  // namespace flowcore
