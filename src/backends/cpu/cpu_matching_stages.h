// The CPU executor of the descriptor-matching stages: host memory, OpenMP.
#pragma once

#include "backends/matching_stages.h"

namespace vemo {

class CpuMatchingStages : public MatchingStages {
 public:
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
};

}  // namespace vemo
