#include "variational/motion_tensors.h"

namespace vemo {

const float kDerivativeMask5[5] = {1.0f / 12.0f, -8.0f / 12.0f, 0.0f, 8.0f / 12.0f, -1.0f / 12.0f};

void MakeST(Backend& backend, const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
            float* derivatives, int height, int width, int pitch, int nChan) {
  backend.motionTensors(frame1, warped, ST, ST2, conf, derivatives, height, width, pitch, nChan, kDerivativeMask5);
}

}  // namespace vemo
