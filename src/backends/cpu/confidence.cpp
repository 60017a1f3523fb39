#include "backends/cpu/confidence.h"

#include "backends/cpu/row_parallel.h"
#include <string>
#include <vector>

#include "backends/cpu/convolve.h"
#include "backends/cpu/pixel_loop.h"
#include "pixel/confidence.h"
#include "pixel/hog.h"

namespace vemo::cpu {

// Standard deviation of the Gaussian that integrates the structure tensor.
constexpr float kTensorSigma = 4.0f;

void gComputeConfidence(const float* image, float* conf, int height, int width, int pitch, int nChannels) {
  checkPlane("gComputeConfidence", height, width, pitch);
  if (nChannels < 1) refuseArguments("gComputeConfidence: an image needs at least one channel");
  const std::size_t plane = (std::size_t)pitch * height;
  std::vector<float> dx(plane * nChannels, 0.0f), dy(plane * nChannels, 0.0f);
  std::vector<float> dxx(plane, 0.0f), dxy(plane, 0.0f), dyy(plane, 0.0f), mag(plane, 0.0f);

  for (int c = 0; c < nChannels; ++c) {
    gConvolveX(dx.data() + c * plane, image + c * plane, height, width, pitch, kHogGradientMask, 3);
    gConvolveY(dy.data() + c * plane, image + c * plane, height, width, pitch, kHogGradientMask, 3);
  }
  {
    const float* gx = dx.data();
    const float* gy = dy.data();
    float *xx = dxx.data(), *xy = dxy.data(), *yy = dyy.data(), *m = mag.data();
    forEachPixel(height, width, [=](int x, int y) {
      structureTensorAt(gx, gy, xx, xy, yy, m, nChannels, plane, (std::size_t)y * pitch + x);
    });
  }
  gGaussianFilter(dxx.data(), dxx.data(), height, width, pitch, kTensorSigma);
  gGaussianFilter(dxy.data(), dxy.data(), height, width, pitch, kTensorSigma);
  gGaussianFilter(dyy.data(), dyy.data(), height, width, pitch, kTensorSigma);

  const float *xx = dxx.data(), *xy = dxy.data(), *yy = dyy.data(), *m = mag.data();
  forEachPixel(height, width, [=](int x, int y) {
    const std::size_t i = (std::size_t)y * pitch + x;
    conf[i] = cornernessFromTensor(xx[i], xy[i], yy[i], m[i]);
  });
}

float gCompute2DSum(const float* image, int height, int width, int pitch) {
  checkPlane("gCompute2DSum", height, width, pitch);
  std::vector<float> rowsum(height);
  float* sums = rowsum.data();
  parallelRows(height, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      float partial[kSumThreads];
      const float* row = image + (std::size_t)y * pitch;
      for (int t = 0; t < kSumThreads; ++t) partial[t] = rowPartialSum(row, width, t);
      sums[y] = treeSum256(partial);
    }
  });
  float total = 0.0f;
  for (int y = 0; y < height; ++y) total += rowsum[y];
  return total;
}

void consistencyCheck(const int* m_x, const int* m_y, const int* forward_x, const int* forward_y,
                      const int* backward_x, const int* backward_y, const float* forward_dist,
                      const float* forward_nextdist, int subsize, float* Confidence, float* u, float* v,
                      int height, int width, int pitch, int scale) {
  checkPlane("consistencyCheck", height, width, pitch);
  if (scale < 1) refuseArguments("consistencyCheck: scale below 1");
  for (int i = 0; i < subsize; ++i)
    if (!consistencyPointInside(m_x[i], m_y[i], scale, height, width))
      refuseArguments("consistencyCheck: grid point " + std::to_string(i) + " (" + std::to_string(m_x[i]) + ", " +
                      std::to_string(m_y[i]) + ") lies outside the " + std::to_string(width) + "x" +
                      std::to_string(height) + " frame");
  for (int i = 0; i < subsize; ++i)
    consistencyCheckAt(m_x, m_y, forward_x, forward_y, backward_x, backward_y, forward_dist, forward_nextdist,
                       Confidence, u, v, pitch, i, scale);
}

}  // namespace vemo::cpu
