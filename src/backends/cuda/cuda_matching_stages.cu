#include "backends/cuda/cuda_matching_stages.h"

#include <cuda_runtime.h>

#include <cstddef>
#include <string>
#include <vector>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_launch.h"
#include "backends/backend.h"
#include "method/filter_masks.h"
#include "pixel/confidence.h"
#include "pixel/hog.h"
#include "pixel/hog_match.h"

namespace vemo {

namespace {

using cuda::checkPlane;
using cuda::forEachPixel;
using cuda::refuseArguments;

// Standard deviation of the Gaussian that integrates the structure tensor.
constexpr float kTensorSigma = 4.0f;

void checkBins(const char* stage, int nOri) {
  if (nOri < 1) refuseArguments(std::string(stage) + ": the number of orientation bins must be positive");
}

struct AccumulateOp {
  const float *dx, *dy;
  float* field;
  int nOri, pitch;
  std::size_t plane;
  __device__ void operator()(int x, int y) const {
    hogAccumulateAt(dx, dy, field, nOri, plane, static_cast<std::size_t>(y) * pitch + x);
  }
};

// The three smoothing taps travel with the launch: the host's constant
// table is not visible to device code.
struct SmoothBinsOp {
  const float* field;
  float* hog;
  int nOri, pitch;
  std::size_t plane;
  float f0, f1, f2;
  __device__ void operator()(int x, int y) const {
    hogSmoothBinsAt(field, hog, nOri, plane, static_cast<std::size_t>(y) * pitch + x, f0, f1, f2);
  }
};

struct EnergyOp {
  const float* hog;
  float* energy;
  int nOri, pitch;
  std::size_t plane;
  __device__ void operator()(int x, int y) const {
    const std::size_t i = static_cast<std::size_t>(y) * pitch + x;
    energy[i] = hogEnergyAt(hog, nOri, plane, i);
  }
};

struct TensorOp {
  const float *dx, *dy;
  float *xx, *xy, *yy, *mag;
  int nChannels, pitch;
  std::size_t plane;
  __device__ void operator()(int x, int y) const {
    structureTensorAt(dx, dy, xx, xy, yy, mag, nChannels, plane, static_cast<std::size_t>(y) * pitch + x);
  }
};

struct CornernessOp {
  const float *xx, *xy, *yy, *mag;
  float* conf;
  int pitch;
  __device__ void operator()(int x, int y) const {
    const std::size_t i = static_cast<std::size_t>(y) * pitch + x;
    conf[i] = cornernessFromTensor(xx[i], xy[i], yy[i], mag[i]);
  }
};

// Block y sums row y: thread t the columns t, t + 256, ..., then the fixed
// halving tree, as the CPU executor emulates it.
__global__ void compute2DSum_kernel(const float* image, int width, int pitch, float* rowSums) {
  __shared__ float partial[kSumThreads];
  const float* row = image + static_cast<std::size_t>(blockIdx.x) * pitch;
  partial[threadIdx.x] = rowPartialSum(row, width, threadIdx.x);
  __syncthreads();
  if (threadIdx.x == 0) rowSums[blockIdx.x] = treeSum256(partial);
}

struct MatchArgs {
  HogMatchInputs in;
  const int *mx, *my;
  HogMatchResults out;
};

// Block p searches point p; worker c owns window column c and walks it top
// to bottom; worker 0 then folds the columns in order.
__global__ void HOGMatch_kernel(MatchArgs a) {
  __shared__ float desc[kHogCells * kHogBins];
  __shared__ MatchBest column[kMatchWorkers];
  const int p = blockIdx.x;
  const int c = threadIdx.x;
  const int ax = a.mx[p], ay = a.my[p];
  const int pitch = a.in.pitch;
  if (!hogDescriptorInside(ax, ay, a.in.height, a.in.width)) return;
  const std::size_t query = static_cast<std::size_t>(ay) * pitch + ax;
  if (a.in.checkCorner != 0 && matchCornerRejects(a.in.Cornerness[query], *a.in.average)) return;
  if (ax == 0 || ay == 0) return;
  const std::size_t plane = static_cast<std::size_t>(pitch) * a.in.height;
  if (c < kHogBins) hogLoadDescriptorBin(a.in.HOG1, plane, pitch, kHogBins, ax, ay, c, desc);
  __syncthreads();
  const float e1 = a.in.Energy1[query];
  const MatchWindow w = matchSearchWindow(ax, ay, a.in.height, a.in.width, a.in.radius);
  const int columns = w.x1 >= w.x0 ? w.x1 - w.x0 + 1 : 0;
  MatchBest m = matchBestInit();
  if (c < columns)
    for (int y = w.y0; y <= w.y1; ++y)
      matchCandidate(m, desc, e1, a.in.Image1, a.in.Image2, a.in.Energy2, a.in.HOG2, plane, pitch, kHogBins, query,
                     w.x0 + c, y);
  column[c] = m;
  __syncthreads();
  if (c != 0) return;
  float best = kNoMatch;
  for (int k = 0; k < columns; ++k)
    if (column[k].d1 < best) best = column[k].d1;
  MatchFold fold = matchFoldInit(best);
  for (int k = 0; k < columns; ++k) matchFoldWorker(fold, column[k]);
  a.out.match_x[p] = fold.x;
  a.out.match_y[p] = fold.y;
  a.out.match_dist[p] = fold.best;
  a.out.match_dist2[p] = fold.second;
}

// The rows' sums added in row order in single precision, then divided by the
// pixel count, as the host does: one thread.
__global__ void averageRowsKernel(const float* rowSums, int height, int width, float* average) {
  float total = 0.0f;
  for (int y = 0; y < height; ++y) total += rowSums[y];
  *average = total / (float)(width * height);
}

// Points outside the frame were refused by the host before the launch; the
// test here only keeps a point that escaped that check from writing outside
// the planes.
__global__ void consistencyCheck_kernel(const int* m_x, const int* m_y, const int* forward_x, const int* forward_y,
                                  const int* backward_x, const int* backward_y, const float* forward_dist,
                                  const float* forward_nextdist, int n, float* Confidence, float* u, float* v,
                                  int height, int width, int pitch, int scale) {
  const int i = blockIdx.x * blockDim.x + threadIdx.x;
  if (i < n && consistencyPointInside(m_x[i], m_y[i], scale, height, width))
    consistencyCheckAt(m_x, m_y, forward_x, forward_y, backward_x, backward_y, forward_dist, forward_nextdist,
                       Confidence, u, v, pitch, i, scale);
}

constexpr std::size_t kIntChunk = 960;
struct IntChunk {
  int values[kIntChunk];
};

__global__ void storeIntsKernel(int* dst, IntChunk chunk, int n) {
  const int j = blockIdx.x * blockDim.x + threadIdx.x;
  if (j < n) dst[j] = chunk.values[j];
}

}  // namespace

IntBuffer CudaMatchingStages::allocateInts(std::size_t count) {
  const std::size_t bytes = (count == 0 ? 1 : count) * sizeof(int);
  void* p = nullptr;
  // Through the backend, which gives its cached blocks back when the device
  // is full, unless it is wrapped (tests that count operations).
  if (auto* cuda = dynamic_cast<CudaBackend*>(&backend_))
    p = cuda->deviceAlloc(bytes);
  else
    VEMO_CUDA_CALL(cudaMalloc(&p, bytes));
  return IntBuffer(this, static_cast<int*>(p), count);
}

// A host-to-device cudaMemcpy from pageable memory first waits for the work
// queued on the stream; kernel arguments are copied when a launch is issued,
// so the grid points travel in launches of kIntChunk values (under the 4 KB
// of arguments every device and driver accepts) and the host never waits.
void CudaMatchingStages::uploadInts(int* dst, const int* src, std::size_t count) {
  if (count == 0) return;
  uploaded_[dst].assign(src, src + count);
  for (std::size_t first = 0; first < count; first += kIntChunk) {
    IntChunk chunk;
    const int n = static_cast<int>(count - first < kIntChunk ? count - first : kIntChunk);
    for (int j = 0; j < n; ++j) chunk.values[j] = src[first + j];
    storeIntsKernel<<<(n + 255) / 256, 256>>>(dst + first, chunk, n);
    VEMO_CUDA_LAUNCHED("int upload");
  }
}

void CudaMatchingStages::clearInts(int* dst, std::size_t count) {
  uploaded_.erase(dst);
  if (count > 0) VEMO_CUDA_CALL(cudaMemset(dst, 0, count * sizeof(int)));
}

void CudaMatchingStages::releaseInts(int* data) noexcept {
  uploaded_.erase(data);
  VEMO_CUDA_TEARDOWN(cudaFree(data));
}

// Per channel the central gradients (3-tap tiled filters) add their
// magnitudes to the orientation bins; the bins are smoothed across
// orientations, then every bin gets the 7 x 7 box mean (x, then y).
void CudaMatchingStages::computeHOG(const float* image, float* hog, int nChannels, int nOri, int height, int width,
                                    int pitch) {
  checkPlane("gComputeHOG", height, width, pitch);
  checkBins("gComputeHOG", nOri);
  if (nChannels < 1) refuseArguments("gComputeHOG: an image needs at least one channel");
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  Buffer scratch = backend_.allocate((2 + static_cast<std::size_t>(nOri)) * plane);  // zero-filled
  float* dx = scratch.data();
  float* dy = dx + plane;
  float* field = dy + plane;
  for (int c = 0; c < nChannels; ++c) {
    backend_.convolveX(dx, image + c * plane, height, width, pitch, kHogGradientMask, 3);
    backend_.convolveY(dy, image + c * plane, height, width, pitch, kHogGradientMask, 3);
    forEachPixel("HOG bins", height, width, AccumulateOp{dx, dy, field, nOri, pitch, plane});
  }
  forEachPixel("HOG smoothing", height, width,
               SmoothBinsOp{field, hog, nOri, pitch, plane, kHogBinSmoothing[0], kHogBinSmoothing[1],
                            kHogBinSmoothing[2]});
  float box[kHogPoolLength];
  for (float& tap : box) tap = kHogPoolTap;
  for (int b = 0; b < nOri; ++b) {
    backend_.convolveX(field + b * plane, hog + b * plane, height, width, pitch, box, kHogPoolLength);
    backend_.convolveY(hog + b * plane, field + b * plane, height, width, pitch, box, kHogPoolLength);
  }
}

// Structure tensor of the central gradients summed over the channels, each
// entry smoothed by a Gaussian with clamped borders, then the cornerness.
void CudaMatchingStages::computeConfidence(const float* image, float* conf, int height, int width, int pitch,
                                           int nChannels) {
  checkPlane("gComputeConfidence", height, width, pitch);
  if (nChannels < 1) refuseArguments("gComputeConfidence: an image needs at least one channel");
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  Buffer scratch = backend_.allocate((2 * static_cast<std::size_t>(nChannels) + 5) * plane);
  float* dx = scratch.data();
  float* dy = dx + nChannels * plane;
  float* xx = dy + nChannels * plane;
  float* xy = xx + plane;
  float* yy = xy + plane;
  float* mag = yy + plane;
  float* tmp = mag + plane;
  for (int c = 0; c < nChannels; ++c) {
    backend_.convolveX(dx + c * plane, image + c * plane, height, width, pitch, kHogGradientMask, 3);
    backend_.convolveY(dy + c * plane, image + c * plane, height, width, pitch, kHogGradientMask, 3);
  }
  forEachPixel("structure tensor", height, width, TensorOp{dx, dy, xx, xy, yy, mag, nChannels, pitch, plane});
  int length = 0;
  const std::vector<float> mask = GaussianFilterCreate(kTensorSigma, length);
  // In-place passes take the clamped border rule whatever the mask length,
  // as the host's Gaussian filter of backend images does.
  for (float* entry : {xx, xy, yy}) {
    backend_.copy(tmp, entry, plane);
    backend_.convolveX(tmp, tmp, height, width, pitch, mask.data(), length);
    backend_.copy(entry, tmp, plane);
    backend_.convolveY(entry, entry, height, width, pitch, mask.data(), length);
  }
  forEachPixel("cornerness", height, width, CornernessOp{xx, xy, yy, mag, conf, pitch});
}

void CudaMatchingStages::computeEnergy(const float* hog, float* energy, int height, int width, int pitch, int nOri) {
  checkPlane("computeEnergy", height, width, pitch);
  checkBins("computeEnergy", nOri);
  forEachPixel("HOG energy", height, width,
               EnergyOp{hog, energy, nOri, pitch, static_cast<std::size_t>(pitch) * height});
}

// Row sums, then their total and the mean, all on the device: the search
// that needs the mean reads it there, and the host goes on issuing. (The
// row-sum buffer goes back to the backend's cache at once; a later user of
// that block is ordered after these kernels on the stream.)
void CudaMatchingStages::average2D(const float* image, int height, int width, int pitch, float* average) {
  checkPlane("gCompute2DSum", height, width, pitch);
  Buffer sums = backend_.allocate(static_cast<std::size_t>(height));
  compute2DSum_kernel<<<height, kSumThreads>>>(image, width, pitch, sums.data());
  VEMO_CUDA_LAUNCHED("Sum2D");
  averageRowsKernel<<<1, 1>>>(sums.data(), height, width, average);
  VEMO_CUDA_LAUNCHED("Sum2D average");
}

void CudaMatchingStages::hogMatch(const HogMatchInputs& in, const int* mx, const int* my, int n,
                                  const HogMatchResults& out) {
  checkPlane("HOGMatch", in.height, in.width, in.pitch);
  if (n < 0) refuseArguments("HOGMatch: negative point count");
  if (in.radius < 1 || in.radius > kMatchRadius) refuseArguments("HOGMatch: search radius out of range");
  uploaded_.erase(out.match_x);  // overwritten on the device: the host copies no longer hold
  uploaded_.erase(out.match_y);
  if (n == 0) return;
  HOGMatch_kernel<<<n, kMatchWorkers>>>(MatchArgs{in, mx, my, out});
  VEMO_CUDA_LAUNCHED("HOGMatch");
}

void CudaMatchingStages::consistencyCheck(const int* m_x, const int* m_y, const int* forward_x,
                                          const int* forward_y, const int* backward_x, const int* backward_y,
                                          const float* forward_dist, const float* forward_nextdist, int n,
                                          float* Confidence, float* u, float* v, int height, int width, int pitch,
                                          int scale) {
  checkPlane("consistencyCheck", height, width, pitch);
  if (scale < 1) refuseArguments("consistencyCheck: scale below 1");
  if (n <= 0) return;
  // The grid points address the planes: each is checked before any write,
  // from the copies kept when they were uploaded (the driver's case, no
  // wait), or else read back.
  std::vector<int> xs, ys;
  auto keptX = uploaded_.find(m_x), keptY = uploaded_.find(m_y);
  if (keptX != uploaded_.end() && keptY != uploaded_.end() && keptX->second.size() >= static_cast<std::size_t>(n) &&
      keptY->second.size() >= static_cast<std::size_t>(n)) {
    xs.assign(keptX->second.begin(), keptX->second.begin() + n);
    ys.assign(keptY->second.begin(), keptY->second.begin() + n);
  } else {
    xs.resize(n);
    ys.resize(n);
    VEMO_CUDA_CALL(cudaMemcpy(xs.data(), m_x, n * sizeof(int), cudaMemcpyDeviceToHost));
    VEMO_CUDA_CALL(cudaMemcpy(ys.data(), m_y, n * sizeof(int), cudaMemcpyDeviceToHost));
  }
  for (int i = 0; i < n; ++i)
    if (!consistencyPointInside(xs[i], ys[i], scale, height, width))
      refuseArguments("consistencyCheck: grid point " + std::to_string(i) + " (" + std::to_string(xs[i]) + ", " +
                      std::to_string(ys[i]) + ") lies outside the " + std::to_string(width) + "x" +
                      std::to_string(height) + " frame");
  const int threads = 256;
  consistencyCheck_kernel<<<(n + threads - 1) / threads, threads>>>(m_x, m_y, forward_x, forward_y, backward_x,
                                                                    backward_y, forward_dist, forward_nextdist, n,
                                                                    Confidence, u, v, height, width, pitch, scale);
  VEMO_CUDA_LAUNCHED("consistency check");
}

}  // namespace vemo
