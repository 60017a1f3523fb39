#include "backends/cuda/cuda_extra_stages.h"

#include <cuda_runtime.h>

#include <cstddef>
#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_launch.h"
#include "method/filter_masks.h"
#include "backends/backend.h"
#include "pixel/convolve.h"
#include "pixel/elementwise.h"
#include "pixel/objective.h"
#include "pixel/sor.h"

namespace vemo {

namespace {

using cuda::checkPlane;
using cuda::forEachPixel;
using cuda::refuseArguments;

// One colour of red-black SOR. A thread per pixel of the row; pixels of the
// other colour do nothing. A pass reads only the other colour (and the pixel
// itself), so the result does not depend on the order of the threads.
struct SorOp {
  const float *A, *rhs;
  float *du, *dv;
  int height, width, term;
  float omega;
  int pitch;
  __device__ void operator()(int x, int y) const {
    if (((x + y) & 1) == term) SORiteration_mem_opt_kernel(A, rhs, du, dv, height, width, omega, pitch, x, y);
  }
};

struct MultOp {
  float* c;
  const float *a, *b;
  int pitch;
  __device__ void operator()(int x, int y) const { Mult_kernel(c, a, b, pitch, x, y); }
};

struct PsiOp {
  float* v;
  int pitch;
  __device__ void operator()(int x, int y) const { Psi_kernel(v, pitch, x, y); }
};

// Clamped one-dimensional pass along x or y of a dense plane.
struct ClampPassOp {
  float* out;
  const float* in;
  int height, width;
  const float* mask;
  int length;
  bool alongX;
  __device__ void operator()(int x, int y) const {
    const std::size_t i = static_cast<std::size_t>(y) * width + x;
    out[i] = alongX ? convolveClampAt(in + static_cast<std::size_t>(y) * width, 1, width, x, mask, length)
                    : convolveClampAt(in + x, width, height, y, mask, length);
  }
};

struct Convolve2dOp {
  float* out;
  const float* in;
  int height, width;
  const float* mask;
  int mh, mw;
  __device__ void operator()(int x, int y) const {
    out[static_cast<std::size_t>(y) * width + x] = convolve2dClampAt(in, height, width, width, mask, mh, mw, x, y);
  }
};

}  // namespace

void CudaExtraStages::sorIteration(const float* devMatrix, const float* rhs, float* du, float* dv, int height,
                                   int width, int term, float omega, int pitch) {
  checkPlane("sorIteration", height, width, pitch);
  if (term != 0 && term != 1) refuseArguments("sorIteration: colour must be 0 or 1, got " + std::to_string(term));
  forEachPixel("SOR", height, width, SorOp{devMatrix, rhs, du, dv, height, width, term, omega, pitch});
}

void CudaExtraStages::mult(float* c, const float* a, const float* b, int height, int width, int pitch) {
  checkPlane("mult", height, width, pitch);
  forEachPixel("Mult", height, width, MultOp{c, a, b, pitch});
}

void CudaExtraStages::psi(float* x, int height, int width, int pitch) {
  checkPlane("psi", height, width, pitch);
  forEachPixel("Psi", height, width, PsiOp{x, pitch});
}

// The input is copied first, so out == in reads the original plane; a mask
// of one column is applied along x, then along y, as on the CPU.
void CudaExtraStages::convolve2d(float* out, const float* in, int height, int width, const float* filter,
                                 int filt_height, int filt_width) {
  checkPlane("Convolve2d", height, width, width);
  if (filter == nullptr || filt_height < 1 || filt_width < 1 ||
      static_cast<long long>(filt_height) * filt_width >= kMaxMaskLength)
    refuseArguments("Convolve2d: filter of " + std::to_string(filt_width) + "x" + std::to_string(filt_height) +
                    " taps does not fit the mask store");
  const std::size_t floats = static_cast<std::size_t>(height) * width;
  const std::size_t taps = static_cast<std::size_t>(filt_height) * filt_width;
  Buffer mask = backend_.allocate(taps);
  VEMO_CUDA_CALL(cudaMemcpy(mask.data(), filter, taps * sizeof(float), cudaMemcpyHostToDevice));
  Buffer source = backend_.allocate(floats);
  backend_.copy(source.data(), in, floats);
  if (filt_width == 1) {
    Buffer rows = backend_.allocate(floats);
    forEachPixel("Convolve2d x", height, width,
                 ClampPassOp{rows.data(), source.data(), height, width, mask.data(), filt_height, true});
    forEachPixel("Convolve2d y", height, width,
                 ClampPassOp{out, rows.data(), height, width, mask.data(), filt_height, false});
  } else {
    forEachPixel("Convolve2d", height, width,
                 Convolve2dOp{out, source.data(), height, width, mask.data(), filt_height, filt_width});
  }
  // The scratch goes back to the backend on return; work on the default
  // stream runs in issue order, so a later user of the blocks waits for
  // these kernels.
}

}  // namespace vemo
