// The CUDA executor of the stages beside the flow path: red-black SOR, the
// element-wise rules of the energy evaluation and the dense 2-D correlation,
// each pixel computed by the same function as on the CPU.
//
// This header needs no CUDA headers, so host code may include it.
#pragma once

#include "backends/extra_stages.h"

namespace vemo {

class CudaExtraStages : public ExtraStages {
 public:
  // Works on the memory of `backend`, a CUDA backend, which also supplies
  // the scratch of the 2-D correlation; it must outlive this executor.
  explicit CudaExtraStages(Backend& backend) : backend_(backend) {}

  void sorIteration(const float* devMatrix, const float* rhs, float* du, float* dv, int height, int width, int term,
                    float omega, int pitch) override;
  void mult(float* c, const float* a, const float* b, int height, int width, int pitch) override;
  void psi(float* x, int height, int width, int pitch) override;
  void convolve2d(float* out, const float* in, int height, int width, const float* filter, int filt_height,
                  int filt_width) override;

 private:
  Backend& backend_;
};

}  // namespace vemo
