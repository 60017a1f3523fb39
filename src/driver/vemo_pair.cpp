// Forward and backward flow of a frame pair with one call.
#include "driver/vemo.h"

namespace vemo {

void vemo(CTensor<float> frame1, CTensor<float> frame2, CTensor<float>& forward,
          CTensor<float>& backward, float sigma, float alpha, float beta, float gamma, float eta,
          int fixedPointIterations, int solverIterations) {
  runFlowGPU(frame1, frame2, forward, sigma, alpha, beta, gamma, eta, fixedPointIterations,
             solverIterations);
  runFlowGPU(frame2, frame1, backward, sigma, alpha, beta, gamma, eta, fixedPointIterations,
             solverIterations);
}

void vemo(CTensor<float> frame1, CTensor<float> frame2, CTensor<float>& forward,
          CTensor<float>& backward) {
  vemo(frame1, frame2, forward, backward, 0.0f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10);
}

}  // namespace vemo
