#include "variational/motion_tensors.h"

namespace vemo {

void MakeST(Backend& backend, const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
            float* derivatives, int height, int width, int pitch, int nChan) {
  backend.motionTensors(frame1, warped, ST, ST2, conf, derivatives, height, width, pitch, nChan, kDerivativeMask5);
}

}  // namespace vemo
