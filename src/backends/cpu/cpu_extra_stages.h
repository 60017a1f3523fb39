// The CPU executor of the stages beside the flow path: host memory, OpenMP.
#pragma once

#include "backends/extra_stages.h"

namespace vemo {

class CpuExtraStages : public ExtraStages {
 public:
  void sorIteration(const float* devMatrix, const float* rhs, float* du, float* dv, int height, int width, int term,
                    float omega, int pitch) override;
  void mult(float* c, const float* a, const float* b, int height, int width, int pitch) override;
  void psi(float* x, int height, int width, int pitch) override;
  void convolve2d(float* out, const float* in, int height, int width, const float* filter, int filt_height,
                  int filt_width) override;
};

}  // namespace vemo
