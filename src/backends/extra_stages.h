// The executor of the stages that the flow path does not use: the red-black
// SOR pass, the element-wise rules of the energy evaluation and the dense
// 2-D correlation of the host-buffer filter entry point.
//
// Control flow (src/variational/sor.*, objective.*, filters.*) is written once
// against this interface and Backend; pointers handed to it are addresses in
// the memory of the Backend it was made for. Failures are reported like
// Backend's: message on standard error, then an exception.
#pragma once

#include <memory>

namespace vemo {

class Backend;

class ExtraStages {
 public:
  virtual ~ExtraStages() = default;

  // One colour pass of red-black SOR over the system of
  // pixel/system_matrix.h: every pixel with (x + y) mod 2 == term (0 or 1)
  // solves its 2 x 2 block from its neighbours and is relaxed by omega.
  // du and dv are single planes of `pitch`; rhs has two planes.
  virtual void sorIteration(const float* devMatrix, const float* rhs, float* du, float* dv, int height, int width,
                            int term, float omega, int pitch) = 0;

  // c = a * b and x <- sqrt(x + 1e-6) over height x width (the difference is
  // Backend::diff).
  virtual void mult(float* c, const float* a, const float* b, int height, int width, int pitch) = 0;
  virtual void psi(float* x, int height, int width, int pitch) = 0;

  // Dense planes (row stride = width): correlation with a row-major
  // filt_height x filt_width mask, samples outside clamped to the nearest
  // edge pixel; a mask with filt_width == 1 is a 1-D mask of filt_height
  // taps applied along x, then along y. out == in is allowed.
  virtual void convolve2d(float* out, const float* in, int height, int width, const float* filter,
                          int filt_height, int filt_width) = 0;
};

// The executor that works on `backend`'s memory. Prints a message and throws
// BackendError when there is none for that backend.
std::unique_ptr<ExtraStages> makeExtraStages(Backend& backend);

}  // namespace vemo
