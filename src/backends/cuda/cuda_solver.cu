// Diffusivity, robust weights, system assembly and the element passes of the
// conjugate-gradient solver on the CUDA backend.
#include <cuda_runtime.h>

#include <cstddef>
#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_launch.h"
#include "method/scratch_sets.h"
#include "pixel/assembly.h"
#include "pixel/diffusivity.h"
#include "pixel/pcg.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"

namespace vemo {

namespace {

using cuda::forEachPixel;

struct GradientXOp {
  float* diffX;
  const float *grad, *channel;
  int pitch;
  __device__ void operator()(int x, int y) const { gradientXPixel(diffX, grad, channel, x, y, pitch); }
};

struct GradientYOp {
  float* diffY;
  const float *grad, *channel;
  int pitch;
  __device__ void operator()(int x, int y) const { gradientYPixel(diffY, grad, channel, x, y, pitch); }
};

// The whole diffusivity of a fixed-point step, over the pitch x height
// planes (padding columns end as 0, as the composed passes leave them).
struct DiffusivityOp {
  const float *u, *v, *du, *dv;
  float *diffX, *diffY;
  int height, width, pitch;
  double epsilon;
  __device__ void operator()(int x, int y) const {
    diffusivityAt(u, v, du, dv, diffX, diffY, x, y, height, width, pitch, epsilon);
  }
};

struct NormalizeOp {
  float* a;
  int pitch;
  double epsilon;
  __device__ void operator()(int x, int y) const { normalizePixel(a, y * pitch + x, epsilon); }
};

struct DataFactorOp {
  const float *ST, *du, *dv;
  float* dPsiData;
  int pitch, plane;
  __device__ void operator()(int x, int y) const { DataFactor_kernel(ST, du, dv, dPsiData, y * pitch + x, plane); }
};

struct GradientFactorOp {
  const float *ST2, *du, *dv;
  float* dPsiGradient;
  int pitch, plane;
  float gamma;
  __device__ void operator()(int x, int y) const {
    GradientFactor_kernel(ST2, du, dv, dPsiGradient, y * pitch + x, plane, gamma);
  }
};

struct MatchFactorOp {
  const float *u, *v, *du, *dv, *geoU, *geoV, *geoConf;
  float *dPsiMatch, *matchU, *matchV;
  int hypos, pitch, plane;
  float beta;
  __device__ void operator()(int x, int y) const {
    MatchFactor_kernel(u, v, du, dv, geoU, geoV, geoConf, dPsiMatch, matchU, matchV, hypos, y * pitch + x, plane,
                       beta);
  }
};

struct MakeMatrixOp {
  float *devMatrix, *b;
  const float *dPsiData, *dPsiGradient, *dPsiMatch, *ST, *ST2, *matchU, *matchV, *u, *v, *diffX, *diffY;
  int height, width, pitch;
  float alpha;
  __device__ void operator()(int x, int y) const {
    MakeMatrix_kernel(devMatrix, b, dPsiData, dPsiGradient, dPsiMatch, ST, ST2, matchU, matchV, u, v, diffX, diffY,
                      x, y, height, width, pitch, alpha);
  }
};

// The three weights of a pixel feed its matrix row straight from registers,
// as in the CPU backend's fused pass; the weight planes are not written.
struct AssembleOp {
  AssemblyInputs in;
  int height, width, pitch;
  float alpha, beta, gamma;
  __device__ void operator()(int x, int y) const { assembleAt(in, x, y, height, width, pitch, alpha, beta, gamma); }
};

struct BlockJacobiOp {
  const float *A, *in;
  float* out;
  int pitch, plane;
  __device__ void operator()(int x, int y) const { blockJacobiPixel(A, in, out, y * pitch + x, plane); }
};

struct Saxpy2Op {
  float* acc1;
  const float* b1;
  float alpha1;
  float* acc2;
  const float* b2;
  float alpha2;
  int pitch;
  __device__ void operator()(int x, int y) const { saxpy2Element(acc1, b1, alpha1, acc2, b2, alpha2, y * pitch + x); }
};

struct ScaleAndAddOp {
  float* acc;
  const float* b;
  float s;
  int pitch;
  __device__ void operator()(int x, int y) const { scaleAndAddElement(acc, b, s, y * pitch + x); }
};

// ---- tiled product and residual --------------------------------------
//
// A block stages the two planes of the vector it multiplies in shared memory:
// 18 x 18 tiles (its 16 x 16 pixels and a one-pixel halo), filled
// cooperatively, zero outside the image. Each pixel then reads its four
// neighbours from the tiles. The per-pixel functions only read neighbours
// that exist, so the values are those of the plain loads.
constexpr int kTile = kBlockSize + 2;

// Reads a vector component from a tile: `i0` is the plane index of the
// thread's pixel and `t0` its tile index; the solver rows only ask for i0 and
// its four neighbours.
struct TileRead {
  const float* tile;
  int i0, t0, pitch;
  __device__ float operator()(int j) const {
    const int d = j - i0;
    return tile[t0 + (d == pitch ? kTile : d == -pitch ? -kTile : d)];
  }
};

// Cell (tx, ty) of the tiles takes the two components of pixel
// (16 bx + tx - 1, 16 by + ty - 1), or 0 outside the image.
template <class ReadU, class ReadV>
__device__ void fillTiles(float* tu, float* tv, ReadU readU, ReadV readV, int height, int width, int pitch) {
  for (int ty = threadIdx.y; ty < kTile; ty += kBlockSize) {
    for (int tx = threadIdx.x; tx < kTile; tx += kBlockSize) {
      const int gx = static_cast<int>(blockIdx.x) * kBlockSize + tx - 1;
      const int gy = static_cast<int>(blockIdx.y) * kBlockSize + ty - 1;
      const bool inside = gx >= 0 && gy >= 0 && gx < width && gy < height;
      const int j = gy * pitch + gx;
      tu[ty * kTile + tx] = inside ? readU(j) : 0.0f;
      tv[ty * kTile + tx] = inside ? readV(j) : 0.0f;
    }
  }
  __syncthreads();
}

// The thread's pixel, its plane index and its tile index.
struct TilePixel {
  int x, y, i, t0;
};

__device__ TilePixel tilePixel(int pitch) {
  const int x = blockIdx.x * kBlockSize + threadIdx.x;
  const int y = blockIdx.y * kBlockSize + threadIdx.y;
  const int t0 = (static_cast<int>(threadIdx.y) + 1) * kTile + static_cast<int>(threadIdx.x) + 1;
  return TilePixel{x, y, y * pitch + x, t0};
}

// q = A (du, dv), or with `z` given: pNext = beta p + z and q = A pNext, p
// and z being two consecutive planes (du, dv = du + plane). With `gate`
// given, beta comes from the solver scalars and nothing is done once the
// solve stopped.
__global__ void mvm_opt_kernel(const float* A, const float* du, const float* dv, const float* z, float beta,
                               float* pNext, float* q, const CgScalars* gate, int height, int width, int pitch) {
  if (gate != nullptr) {
    if (gate->active == 0) return;
    beta = gate->beta;
  }
  __shared__ float tu[kTile * kTile];
  __shared__ float tv[kTile * kTile];
  const int plane = pitch * height;
  if (z != nullptr)
    fillTiles(tu, tv, DirectionRead{du, z, beta}, DirectionRead{du + plane, z + plane, beta}, height, width, pitch);
  else
    fillTiles(tu, tv, VectorRead{du}, VectorRead{dv}, height, width, pitch);
  const TilePixel px = tilePixel(pitch);
  if (px.x >= width || px.y >= height) return;
  const int i = px.i, t0 = px.t0;
  if (z != nullptr) {
    pNext[i] = tu[t0];
    pNext[i + plane] = tv[t0];
  }
  float ru, rv;
  productAtWith(A, TileRead{tu, i, t0, pitch}, TileRead{tv, i, t0, pitch}, i, plane, pitch,
                neighboursOf(px.x, px.y, height, width), ru, rv);
  q[i] = ru;
  q[i + plane] = rv;
}

__global__ void computeResidual_opt_kernel(const float* A, const float* rhs, const float* du, const float* dv,
                                           float* res, int height, int width, int pitch) {
  __shared__ float tu[kTile * kTile];
  __shared__ float tv[kTile * kTile];
  const int plane = pitch * height;
  fillTiles(tu, tv, VectorRead{du}, VectorRead{dv}, height, width, pitch);
  const TilePixel px = tilePixel(pitch);
  if (px.x >= width || px.y >= height) return;
  const int i = px.i, t0 = px.t0;
  residualAtWith(A, rhs, TileRead{tu, i, t0, pitch}, TileRead{tv, i, t0, pitch}, i, plane, pitch,
                 neighboursOf(px.x, px.y, height, width), res);
}

// du += a p and r -= a q on both planes, then z = block-Jacobi(r) at the
// pixel: the pixel reads only its own entries of r, so one pass does both.
// With `gate` given, a comes from the solver scalars and nothing is done once
// the solve stopped.
__global__ void updatePreconditionKernel(const float* A, float* du, const float* p, float* r, const float* q,
                                         float a, float* z, const CgScalars* gate, int height, int width,
                                         int pitch) {
  if (gate != nullptr) {
    if (gate->active == 0) return;
    a = gate->alpha;
  }
  const int x = blockIdx.x * kBlockSize + threadIdx.x;
  const int y = blockIdx.y * kBlockSize + threadIdx.y;
  if (x >= width || y >= height) return;
  const int i = y * pitch + x;
  const int plane = pitch * height;
  saxpy2Element(du, p, a, r, q, -a, i);
  saxpy2Element(du + plane, p + plane, a, r + plane, q + plane, -a, i);
  blockJacobiPixel(A, r, z, i, plane);
}

void launchProduct(cudaStream_t stream, const char* label, const float* A, const float* du, const float* dv,
                   const float* z, float beta, float* pNext, float* q, const CgScalars* gate, int height, int width,
                   int pitch) {
  if (height < 1 || width < 1) return;
  const dim3 grid = cuda::checkedPixelGrid(label, height, width);
  mvm_opt_kernel<<<grid, cuda::pixelBlock(), 0, stream>>>(A, du, dv, z, beta, pNext, q, gate, height, width, pitch);
  VEMO_CUDA_LAUNCHED(label);
}

void launchUpdate(cudaStream_t stream, const float* A, float* du, const float* p, float* r, const float* q, float a,
                  float* z, const CgScalars* gate, int height, int width, int pitch) {
  if (height < 1 || width < 1) return;
  const dim3 grid = cuda::checkedPixelGrid("UpdatePrecondition", height, width);
  updatePreconditionKernel<<<grid, cuda::pixelBlock(), 0, stream>>>(A, du, p, r, q, a, z, gate, height, width,
                                                                     pitch);
  VEMO_CUDA_LAUNCHED("UpdatePrecondition");
}

}  // namespace

void CudaBackend::gradientX(float* diffX, const float* grad, const float* channel, int height, int width,
                            int pitch) {
  forEachPixel("gradientX", height, width - 1, GradientXOp{diffX, grad, channel, pitch}, stream());
}

void CudaBackend::gradientY(float* diffY, const float* grad, const float* channel, int height, int width,
                            int pitch) {
  forEachPixel("gradientY", height - 1, width, GradientYOp{diffY, grad, channel, pitch}, stream());
}

void CudaBackend::diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                              float* diffY, int height, int width, int pitch, float* sum, float* derivative,
                              double epsilon) {
  (void)sum;  // scratch of the composed passes, not needed here
  (void)derivative;
  if (height < 1 || width < 1) return;
  if (pitch < width) cuda::refuseArguments("diffusivity: pitch " + std::to_string(pitch) + " below width " +
                                           std::to_string(width));
  forEachPixel("Diffusivity", height, pitch,
               DiffusivityOp{u, v, du, dv, diffX, diffY, height, width, pitch, epsilon}, stream());
}

void CudaBackend::normalize(float* x, int height, int width, int pitch, double epsilon) {
  forEachPixel("normalize", height, width, NormalizeOp{x, pitch, epsilon}, stream());
}

void CudaBackend::dataFactor(const float* ST, const float* du, const float* dv, float* dPsiData, int height,
                             int width, int pitch) {
  forEachPixel("DataFactor", height, width, DataFactorOp{ST, du, dv, dPsiData, pitch, pitch * height}, stream());
}

void CudaBackend::gradientFactor(const float* ST2, const float* du, const float* dv, float* dPsiGradient,
                                 int height, int width, int pitch, float gamma) {
  forEachPixel("GradientFactor", height, width,
               GradientFactorOp{ST2, du, dv, dPsiGradient, pitch, pitch * height, gamma}, stream());
}

void CudaBackend::matchFactor(const float* u, const float* v, const float* du, const float* dv, const float* geoU,
                              const float* geoV, const float* geoConf, float* dPsiMatch, float* matchU,
                              float* matchV, int hypos, int height, int width, int pitch, float beta) {
  forEachPixel("MatchFactor", height, width,
               MatchFactorOp{u, v, du, dv, geoU, geoV, geoConf, dPsiMatch, matchU, matchV, hypos, pitch,
                             pitch * height, beta}, stream());
}

void CudaBackend::makeMatrix(float* devMatrix, float* b, const float* dPsiData, const float* dPsiGradient,
                             const float* dPsiMatch, const float* ST, const float* ST2, const float* matchU,
                             const float* matchV, const float* u, const float* v, const float* diffX,
                             const float* diffY, int height, int width, int pitch, float alpha) {
  forEachPixel("MakeMatrix", height, width,
               MakeMatrixOp{devMatrix, b, dPsiData, dPsiGradient, dPsiMatch, ST, ST2, matchU, matchV, u, v, diffX,
                            diffY, height, width, pitch, alpha}, stream());
}

void CudaBackend::assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU,
                                 const float* geoV, const float* geoConf, int height, int width, int pitch,
                                 float alpha, float beta, float gamma) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  const AssemblyInputs in{fp.ST, fp.ST2, fp.du,    fp.du + plane, u,        v,   geoU,
                          geoV,  geoConf, fp.diffX, fp.diffY,     fp.devMatrix, fp.b};
  forEachPixel("Assemble", height, width, AssembleOp{in, height, width, pitch, alpha, beta, gamma}, stream());
}

void CudaBackend::residual(const float* A, const float* rhs, const float* du, const float* dv, int height, int width,
                           int pitch, float* res) {
  if (height < 1 || width < 1) return;
  const dim3 grid = cuda::checkedPixelGrid("Residual", height, width);
  computeResidual_opt_kernel<<<grid, cuda::pixelBlock(), 0, stream()>>>(A, rhs, du, dv, res, height, width, pitch);
  VEMO_CUDA_LAUNCHED("Residual");
}

void CudaBackend::product(const float* A, const float* du, const float* dv, int height, int width, int pitch,
                          float* res) {
  launchProduct(stream(), "Product", A, du, dv, nullptr, 0.0f, nullptr, res, nullptr, height, width, pitch);
}

void CudaBackend::blockJacobi(const float* A, const float* x, float* y, int height, int width, int pitch) {
  forEachPixel("BlockJacobi", height, width, BlockJacobiOp{A, x, y, pitch, pitch * height}, stream());
}

void CudaBackend::saxpy2(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2,
                         int height, int width, int pitch) {
  forEachPixel("Saxpy2", height, width, Saxpy2Op{acc1, b1, alpha1, acc2, b2, alpha2, pitch}, stream());
}

void CudaBackend::scaleAndAdd(float* acc, const float* b, float s, int height, int width, int pitch) {
  forEachPixel("ScaleAndAdd", height, width, ScaleAndAddOp{acc, b, s, pitch}, stream());
}

float CudaBackend::productDot(const float* A, const float* p, float* q, int height, int width, int pitch) {
  const float* pv = p + static_cast<std::size_t>(pitch) * height;
  launchProduct(stream(), "Product", A, p, pv, nullptr, 0.0f, nullptr, q, nullptr, height, width, pitch);
  return dot(p, q, 2 * height, width, pitch);
}

float CudaBackend::nextDirectionProductDot(const float* A, const float* p, const float* z, float beta, float* pNext,
                                           float* q, int height, int width, int pitch) {
  launchProduct(stream(), "NextDirectionProduct", A, p, nullptr, z, beta, pNext, q, nullptr, height, width, pitch);
  return dot(pNext, q, 2 * height, width, pitch);
}

float CudaBackend::updatePrecondition(const float* A, float* du, const float* p, float* r, const float* q, float a,
                                      float* z, int height, int width, int pitch) {
  launchUpdate(stream(), A, du, p, r, q, a, z, nullptr, height, width, pitch);
  return dot(r, z, 2 * height, width, pitch);
}

void CudaBackend::cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) {
  const float* pv = p + static_cast<std::size_t>(pitch) * height;
  launchProduct(stream(), "Product", A, p, pv, nullptr, 0.0f, nullptr, q, cgScalars(), height, width, pitch);
  if (height >= 1 && width >= 1) reduce(p, q, 2 * height, width, pitch, DotUse::Step);
}

void CudaBackend::cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q, int height,
                                int width, int pitch) {
  launchProduct(stream(), "NextDirectionProduct", A, p, nullptr, z, 0.0f, pNext, q, cgScalars(), height, width, pitch);
  if (height >= 1 && width >= 1) reduce(pNext, q, 2 * height, width, pitch, DotUse::Step);
}

void CudaBackend::cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height,
                           int width, int pitch) {
  launchUpdate(stream(), A, du, p, r, q, 0.0f, z, cgScalars(), height, width, pitch);
  if (height >= 1 && width >= 1) reduce(r, z, 2 * height, width, pitch, DotUse::Finish);
}

}  // namespace vemo
