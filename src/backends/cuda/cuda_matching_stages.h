// The CUDA executor of the descriptor-matching stages, each pixel or search
// point computed by the same function as on the CPU.
//
// One difference in the arithmetic remains: the orientation of a gradient
// comes from the double-precision atan2, which the CUDA math library rounds
// within 2 ulp where the host library is correctly rounded. After rounding
// to float the angles agree except within a few double ulps of a float
// rounding boundary, so a HOG bin may very rarely differ.
//
// This header needs no CUDA headers, so host code may include it.
#pragma once

#include <map>
#include <vector>

#include "backends/matching_stages.h"

namespace vemo {

class Backend;

class CudaMatchingStages : public MatchingStages {
 public:
  // Works on the memory of `backend`, a CUDA backend, which also runs the
  // filters and supplies the scratch; it must outlive this executor.
  explicit CudaMatchingStages(Backend& backend) : backend_(backend) {}

  IntBuffer allocateInts(std::size_t count) override;
  void uploadInts(int* dst, const int* src, std::size_t count) override;
  void clearInts(int* dst, std::size_t count) override;

  void computeHOG(const float* image, float* hog, int nChannels, int nOri, int height, int width,
                  int pitch) override;
  void computeConfidence(const float* image, float* conf, int height, int width, int pitch,
                         int nChannels) override;
  void computeEnergy(const float* hog, float* energy, int height, int width, int pitch, int nOri) override;
  void average2D(const float* image, int height, int width, int pitch, float* average) override;
  void hogMatch(const HogMatchInputs& inputs, const int* mx, const int* my, int n,
                const HogMatchResults& results) override;
  void consistencyCheck(const int* m_x, const int* m_y, const int* forward_x, const int* forward_y,
                        const int* backward_x, const int* backward_y, const float* forward_dist,
                        const float* forward_nextdist, int n, float* Confidence, float* u, float* v, int height,
                        int width, int pitch, int scale) override;

  void releaseInts(int* data) noexcept override;

 private:
  Backend& backend_;
  // What uploadInts() put in each array still holding it, so that
  // consistencyCheck() can check the grid points without reading them back
  // (which would wait for the device).
  std::map<const int*, std::vector<int>> uploaded_;
};

}  // namespace vemo
