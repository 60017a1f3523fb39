// Small pyramid levels in one thread block.
//
// A level below cuda::kOneBlockLevelPixels runs whole -- motion tensors, every
// fixed-point iteration (diffusivity, assembly, solve) and the final update
// of the flow -- in one launch of one block of kLevelThreads threads. The
// block runs the same template as the host (variational/level_steps.h) on
// BlockSteps, whose operations are those of the CUDA backend done by the
// block's threads: each operation loops over the level's pixels, calls the
// same src/pixel/ function the ordinary kernels call, and ends with a
// barrier, which orders it before the next one exactly as consecutive
// launches are ordered. The planes live where they always do (global memory,
// the run's scratch); no shared memory is used, so the kernel fits any
// device of compute capability 7.5 or newer whatever the level's shape.
//
// Reductions give the ordinary path's values bit for bit (cuda_reduce.cu): a
// row's sum is the 256-term tree of rowDotKernel, computed by one warp whose
// lane l holds the partial sums of threads l, l + 32, ..., l + 224 of that
// kernel (the first three halvings inside each lane, the last five by
// shuffles), and the rows are combined by warp 0 as combineRowsKernel
// combines them. Double addition is commutative, so only the pairing, which
// is the same, matters.
//
// What a reviewer must know:
//  - every operation is entered and left by all threads together (no early
//    return of some threads), because it ends in __syncthreads(); the tests
//    on the solver's scalars read them after a barrier, so all threads take
//    the same branch;
//  - the scalars are written by thread 0 only, between two barriers;
//  - a filter must not write over its own input (it would race): the level's
//    template never asks for that, and the block traps if it does;
//  - the solve time is measured with the device's global timer around each
//    solve and added to a counter that settleStretches() reads.
#include <cuda_runtime.h>

#include <cstddef>

#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_work_policy.h"
#include "pixel/assembly.h"
#include "pixel/cg_scalars.h"
#include "pixel/convolve.h"
#include "pixel/diffusivity.h"
#include "pixel/elementwise.h"
#include "pixel/motion_tensor.h"
#include "pixel/pcg.h"
#include "method/level_steps.h"

namespace vemo {

namespace {

// 16 warps: each warp sums one row of a reduction at a time. A multiple of
// 32 is required (the warp-level tree); 512 threads leave 128 registers per
// thread on every supported device.
constexpr int kLevelThreads = 512;
static_assert(kLevelThreads % 32 == 0, "whole warps");
constexpr unsigned kFullWarp = 0xffffffffu;
// Threads of the ordinary reduction kernels (cuda_reduce.cu), whose tree is
// reproduced here.
constexpr int kTreeThreads = 256;
constexpr int kLanesPerTree = kTreeThreads / 32;

__device__ unsigned long long globalTimer() {
  unsigned long long t;
  asm volatile("mov.u64 %0, %%globaltimer;" : "=l"(t));
  return t;
}

// The 256-term halving tree of cuda_reduce.cu's treeSum, for one warp: lane l
// holds v[k] = term l + 32 k. The halvings by 128, 64 and 32 pair terms of
// the same lane; those by 16 ... 1 pair lanes. Lane 0 returns the total.
__device__ double warpTree(double v[kLanesPerTree]) {
  v[0] += v[4];
  v[1] += v[5];
  v[2] += v[6];
  v[3] += v[7];
  v[0] += v[2];
  v[1] += v[3];
  v[0] += v[1];
  double s = v[0];
  for (int offset = 16; offset > 0; offset >>= 1) s += __shfl_down_sync(kFullWarp, s, offset);
  return s;
}

// The executor of the level's template inside the block.
struct BlockSteps {
  double* rowSums;  // at least 2 * height + 1 entries
  CgScalars* cg;
  unsigned long long* solveClock;

  template <class Op>
  __device__ void forEachPixel(int height, int width, Op op) {
    const int n = height * width;
    for (int k = threadIdx.x; k < n; k += blockDim.x) op(k % width, k / width);
    __syncthreads();
  }

  __device__ void clear(float* dst, std::size_t floats) {
    for (std::size_t i = threadIdx.x; i < floats; i += blockDim.x) dst[i] = 0.0f;
    __syncthreads();
  }

  __device__ void copy(float* dst, const float* src, std::size_t floats) {
    if (dst < src + floats && src < dst + floats && dst != src) __trap();  // would race
    for (std::size_t i = threadIdx.x; i < floats; i += blockDim.x) dst[i] = src[i];
    __syncthreads();
  }

  __device__ void add(float* acc, const float* b, int height, int width, int pitch) {
    forEachPixel(height, width, [=](int x, int y) { addAt(acc, b, pitch, x, y); });
  }

  __device__ void motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
                                float* derivatives, int height, int width, int pitch, int nChan, const float* mask) {
    motionTensorSteps(*this, frame1, warped, ST, ST2, conf, derivatives, height, width, pitch, nChan, mask);
  }

  __device__ void diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
    forEachPixel(height, width, [=](int x, int y) { diffAt(c, a, b, pitch, x, y); });
  }

  // The rule the CUDA backend's filters follow: the shared-memory tile rule
  // for short masks, clamped samples for long ones.
  __device__ void convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                            int length) {
    if (out == in) __trap();  // in place would race
    forEachPixel(height, width, [=](int x, int y) {
      const float* row = in + static_cast<std::size_t>(y) * pitch;
      out[static_cast<std::size_t>(y) * pitch + x] = length < kSmallMaskLimit
                                                         ? convolveSmallAt(row, 1, width, x, mask, length)
                                                         : convolveClampAt(row, 1, width, x, mask, length);
    });
  }

  __device__ void convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                            int length) {
    if (out == in) __trap();
    forEachPixel(height, width, [=](int x, int y) {
      out[static_cast<std::size_t>(y) * pitch + x] = length < kSmallMaskLimit
                                                         ? convolveSmallAt(in + x, pitch, height, y, mask, length)
                                                         : convolveClampAt(in + x, pitch, height, y, mask, length);
    });
  }

  __device__ void brightnessTensor(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* conf,
                                   int height, int width, int pitch) {
    forEachPixel(height, width, [=](int x, int y) { makeSTAt(ST, Ix, Iy, Iz, conf, height, width, pitch, x, y); });
  }

  __device__ void gradientTensor(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                                 const float* Iyz, const float* conf, int height, int width, int pitch) {
    forEachPixel(height, width,
                 [=](int x, int y) { makeST2At(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch, x, y); });
  }

  // Over the whole planes, padding included, as CudaBackend::diffusivity.
  __device__ void diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                              float* diffY, int height, int width, int pitch, float*, float*, double epsilon) {
    forEachPixel(height, pitch, [=](int x, int y) {
      diffusivityAt(u, v, du, dv, diffX, diffY, x, y, height, width, pitch, epsilon);
    });
  }

  __device__ void assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU,
                                 const float* geoV, const float* geoConf, int height, int width, int pitch,
                                 float alpha, float beta, float gamma) {
    const std::size_t plane = static_cast<std::size_t>(pitch) * height;
    const AssemblyInputs in{fp.ST, fp.ST2, fp.du,    fp.du + plane, u,        v,   geoU,
                            geoV,  geoConf, fp.diffX, fp.diffY,     fp.devMatrix, fp.b};
    forEachPixel(height, width, [=](int x, int y) { assembleAt(in, x, y, height, width, pitch, alpha, beta, gamma); });
  }

  __device__ void residual(const float* A, const float* rhs, const float* du, const float* dv, int height,
                           int width, int pitch, float* res) {
    forEachPixel(height, width,
                 [=](int x, int y) { residualPixel(A, rhs, du, dv, x, y, height, width, pitch, res); });
  }

  __device__ void blockJacobi(const float* A, const float* in, float* out, int height, int width, int pitch) {
    const int plane = pitch * height;
    forEachPixel(height, width, [=](int x, int y) { blockJacobiPixel(A, in, out, y * pitch + x, plane); });
  }

  // x . y over `rows` rows as cuda_reduce.cu sums it; the double total is
  // valid in thread 0. Leaves rowSums[rows] = total as that path does. The
  // caller ends with a barrier before rowSums is used again.
  __device__ double dot(const float* x, const float* y, int rows, int width, int pitch) {
    const int lane = threadIdx.x & 31;
    const int warp = threadIdx.x >> 5;
    const int warps = blockDim.x >> 5;
    for (int r = warp; r < rows; r += warps) {  // the same for all lanes of a warp
      const float* xr = x + static_cast<std::size_t>(r) * pitch;
      const float* yr = y + static_cast<std::size_t>(r) * pitch;
      double v[kLanesPerTree];
      for (int k = 0; k < kLanesPerTree; ++k) {
        double sum = 0.0;
        for (int c = lane + 32 * k; c < width; c += kTreeThreads) sum += static_cast<double>(xr[c] * yr[c]);
        v[k] = sum;
      }
      const double rowTotal = warpTree(v);
      if (lane == 0) rowSums[r] = rowTotal;
    }
    __syncthreads();
    double total = 0.0;
    if (warp == 0) {
      double v[kLanesPerTree];
      for (int k = 0; k < kLanesPerTree; ++k) {
        const int t = lane + 32 * k;
        const int r0 = static_cast<int>(static_cast<long long>(rows) * t / kTreeThreads);
        const int r1 = static_cast<int>(static_cast<long long>(rows) * (t + 1) / kTreeThreads);
        double sum = 0.0;
        for (int r = r0; r < r1; ++r) sum += rowSums[r];
        v[k] = sum;
      }
      total = warpTree(v);
      if (lane == 0) rowSums[rows] = total;
    }
    return total;
  }

  __device__ bool cgActive() const { return cg->active != 0; }
  __device__ bool cgDirectionInPlace() const { return false; }

  __device__ void cgBegin(const float* r, const float* z, int height, int width, int pitch) {
    const double total = dot(r, z, 2 * height, width, pitch);
    if (threadIdx.x == 0) cgStart(*cg, static_cast<float>(total));
    __syncthreads();
  }

  __device__ void cgPrepare(const float* A, const float* b, const float* du, const CGtmp& t, int height, int width,
                            int pitch) {
    pcgStartSteps(*this, A, b, du, t, height, width, pitch);
  }

  __device__ void cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) {
    if (!cgActive()) return;  // read after a barrier: the same for every thread
    const int plane = pitch * height;
    forEachPixel(height, width, [=](int x, int y) { productPixel(A, p, p + plane, x, y, height, width, pitch, q); });
    const double total = dot(p, q, 2 * height, width, pitch);
    if (threadIdx.x == 0) cgStep(*cg, static_cast<float>(total));
    __syncthreads();
  }

  // pNext = beta p + z as the product kernel's tiles hold it, then q = A pNext.
  __device__ void cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q, int height,
                                int width, int pitch) {
    if (!cgActive()) return;
    const float beta = cg->beta;
    const int plane = pitch * height;
    forEachPixel(height, width, [=](int x, int y) {
      const int i = y * pitch + x;
      pNext[i] = DirectionRead{p, z, beta}(i);
      pNext[i + plane] = DirectionRead{p + plane, z + plane, beta}(i);
    });
    forEachPixel(height, width,
                 [=](int x, int y) { productPixel(A, pNext, pNext + plane, x, y, height, width, pitch, q); });
    const double total = dot(pNext, q, 2 * height, width, pitch);
    if (threadIdx.x == 0) cgStep(*cg, static_cast<float>(total));
    __syncthreads();
  }

  __device__ void cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height,
                           int width, int pitch) {
    if (!cgActive()) return;
    const float a = cg->alpha;
    const int plane = pitch * height;
    forEachPixel(height, width, [=](int x, int y) {
      const int i = y * pitch + x;
      saxpy2Element(du, p, a, r, q, -a, i);
      saxpy2Element(du + plane, p + plane, a, r + plane, q + plane, -a, i);
      blockJacobiPixel(A, r, z, i, plane);
    });
    const double total = dot(r, z, 2 * height, width, pitch);
    if (threadIdx.x == 0) cgFinish(*cg, static_cast<float>(total));
    __syncthreads();
  }
};

// The solve of a fixed-point step inside the block, timed by the device's
// clock (every operation before it ended in a barrier).
__device__ void solveStep(BlockSteps& steps, const SolveArgs& a) {
  const unsigned long long start = globalTimer();
  pcgSteps(steps, a);
  if (threadIdx.x == 0) *steps.solveClock += globalTimer() - start;
}

__global__ void __launch_bounds__(kLevelThreads)
    levelInOneBlockKernel(LevelArgs level, double* rowSums, CgScalars* cg, unsigned long long* solveClock) {
  BlockSteps steps{rowSums, cg, solveClock};
  levelSteps(steps, level);
}

}  // namespace

bool CudaBackend::runWholeLevel(const LevelArgs& level, double& solverTotal) {
  if (!oneBlockLevels_ || issueStream_ != nullptr || !cuda::runsLevelInOneBlock(level.height, level.width) ||
      level.pitch < level.width || level.nChan < 1)
    return false;
  LevelArgs a = level;
  a.derivativeMask = deviceMask(level.derivativeMask, 5);
  double* sums = rowSums(2 * level.height);
  CgScalars* scalars = cgScalars();
  unsigned long long* clock = solveClockFor(&solverTotal);
  levelInOneBlockKernel<<<1, kLevelThreads, 0, stream()>>>(a, sums, scalars, clock);
  VEMO_CUDA_LAUNCHED("level in one block");
  return true;
}

}  // namespace vemo
