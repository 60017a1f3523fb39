// Deterministic dot products of the CUDA backend, and the solver scalars they
// feed.
//
// The order of every addition is fixed by the data layout alone (rows,
// thread indices, a fixed tree), never by which block runs first, so the same
// data gives the same value on every call and on every device. A reduction
// for the conjugate gradient hands its total to the solver's scalars on the
// device (pixel/cg_scalars.h) instead of to the host, so the host goes on
// issuing work without waiting; once the solve has converged those
// reductions do nothing.
#include <cuda_runtime.h>

#include <cstddef>

#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "pixel/cg_scalars.h"

namespace vemo {

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
// double. Thread t takes columns t, t + 256, ... in order. Does nothing when
// `gate` is given and its solve has stopped.
__global__ void rowDotKernel(const float* x, const float* y, int width, int pitch, double* rowSums,
                             const CgScalars* gate) {
  if (gate != nullptr && gate->active == 0) return;
  __shared__ double s[kReduceThreads];
  const std::size_t o = static_cast<std::size_t>(blockIdx.x) * pitch;
  double sum = 0.0;
  for (int c = threadIdx.x; c < width; c += kReduceThreads) sum += static_cast<double>(x[o + c] * y[o + c]);
  s[threadIdx.x] = sum;
  treeSum(s);
  if (threadIdx.x == 0) rowSums[blockIdx.x] = s[0];
}

// One block: thread t adds the rows [rows t / 256, rows (t + 1) / 256) in
// order, then the 256 runs are added by the tree. The double total goes to
// rowSums[rows]; rounded to float, it goes to the solver's scalars as `use`
// says. Every thread reads the gate before the first barrier and thread 0
// writes the scalars after the last, so the early exit is uniform.
__global__ void combineRowsKernel(double* rowSums, int rows, CgScalars* scalars, CudaBackend::DotUse use) {
  using Use = CudaBackend::DotUse;
  if ((use == Use::Step || use == Use::Finish) && scalars->active == 0) return;
  __shared__ double s[kReduceThreads];
  const int t = threadIdx.x;
  const int r0 = static_cast<int>(static_cast<long long>(rows) * t / kReduceThreads);
  const int r1 = static_cast<int>(static_cast<long long>(rows) * (t + 1) / kReduceThreads);
  double sum = 0.0;
  for (int r = r0; r < r1; ++r) sum += rowSums[r];
  s[t] = sum;
  treeSum(s);
  if (t != 0) return;
  rowSums[rows] = s[0];
  const float total = static_cast<float>(s[0]);
  switch (use) {
    case Use::Start: cgStart(*scalars, total); break;
    case Use::Step: cgStep(*scalars, total); break;
    case Use::Finish: cgFinish(*scalars, total); break;
    case Use::Host: break;
  }
}

// The scalars of a solve that stops at once; the count over all solves stays.
__global__ void stopSolveKernel(CgScalars* scalars) {
  const long long updates = scalars->updates;
  *scalars = CgScalars();
  scalars->updates = updates;
}

}  // namespace

void CudaBackend::reduce(const float* x, const float* y, int rows, int width, int pitch, DotUse use) {
  double* sums = rowSums(rows);
  CgScalars* scalars = use == DotUse::Host ? nullptr : cgScalars();
  const CgScalars* gate = use == DotUse::Step || use == DotUse::Finish ? scalars : nullptr;
  rowDotKernel<<<rows, kReduceThreads, 0, stream()>>>(x, y, width, pitch, sums, gate);
  VEMO_CUDA_LAUNCHED("dot rows");
  combineRowsKernel<<<1, kReduceThreads, 0, stream()>>>(sums, rows, scalars, use);
  VEMO_CUDA_LAUNCHED("dot combine");
}

float CudaBackend::dot(const float* x, const float* y, int rows, int width, int pitch) {
  if (rows < 1 || width < 1) return 0.0f;
  reduce(x, y, rows, width, pitch, DotUse::Host);
  double total = 0.0;
  // A blocking copy: it waits for both kernels.
  VEMO_CUDA_CALL(cudaMemcpy(&total, rowSums_ + rows, sizeof total, cudaMemcpyDeviceToHost));
  return static_cast<float>(total);
}

CgScalars* CudaBackend::cgScalars() {
  if (cgScalars_ == nullptr) {
    void* p = nullptr;
    VEMO_CUDA_CALL(cudaMalloc(&p, sizeof(CgScalars)));
    cgScalars_ = static_cast<CgScalars*>(p);
    VEMO_CUDA_CALL(cudaMemset(cgScalars_, 0, sizeof(CgScalars)));
  }
  return cgScalars_;
}

void CudaBackend::cgBegin(const float* r, const float* z, int height, int width, int pitch) {
  if (height < 1 || width < 1) {
    // Nothing to solve: a solve that has stopped before its first step.
    stopSolveKernel<<<1, 1, 0, stream()>>>(cgScalars());
    VEMO_CUDA_LAUNCHED("empty solve");
    return;
  }
  reduce(r, z, 2 * height, width, pitch, DotUse::Start);
}

// The passes are issued for every iteration allowed; those after convergence
// find the scalars inactive and return at once.
bool CudaBackend::cgActive() { return true; }

int CudaBackend::cgIterations() {
  int iterations = 0;
  VEMO_CUDA_CALL(cudaMemcpy(&iterations, &cgScalars()->iterations, sizeof iterations, cudaMemcpyDeviceToHost));
  return iterations;
}

long long CudaBackend::solverUpdates() {
  long long updates = 0;
  VEMO_CUDA_CALL(cudaMemcpy(&updates, &cgScalars()->updates, sizeof updates, cudaMemcpyDeviceToHost));
  return updates;
}

}  // namespace vemo
