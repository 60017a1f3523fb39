#include "backends/cpu/cpu_matching_stages.h"

#include <cstring>
#include <iostream>
#include <string>

#include "backends/cpu/confidence.h"
#include "backends/cpu/hog.h"
#include "backends/cpu/hog_match.h"
#include "backends/backend.h"
#include "common/diagnostics.h"

namespace vemo {

IntBuffer CpuMatchingStages::allocateInts(std::size_t count) {
  int* data = new (std::nothrow) int[count == 0 ? 1 : count];
  if (data == nullptr) {
    const std::string message = "cpu matching: cannot allocate " + std::to_string(count) + " ints";
    vemo::reportf(stderr, "%s\n", message.c_str());
    throw BackendError(message);
  }
  return IntBuffer(this, data, count);
}

void CpuMatchingStages::uploadInts(int* dst, const int* src, std::size_t count) {
  if (count > 0) std::memcpy(dst, src, count * sizeof(int));
}

void CpuMatchingStages::clearInts(int* dst, std::size_t count) {
  if (count > 0) std::memset(dst, 0, count * sizeof(int));
}

void CpuMatchingStages::releaseInts(int* data) noexcept { delete[] data; }

void CpuMatchingStages::computeHOG(const float* image, float* hog, int nChannels, int nOri, int height, int width,
                                   int pitch) {
  cpu::gComputeHOG(image, hog, nChannels, nOri, height, width, pitch);
}

void CpuMatchingStages::computeConfidence(const float* image, float* conf, int height, int width, int pitch,
                                          int nChannels) {
  cpu::gComputeConfidence(image, conf, height, width, pitch, nChannels);
}

void CpuMatchingStages::computeEnergy(const float* hog, float* energy, int height, int width, int pitch,
                                      int nOri) {
  cpu::computeEnergy(hog, energy, height, width, pitch, nOri);
}

void CpuMatchingStages::average2D(const float* image, int height, int width, int pitch, float* average) {
  *average = cpu::gCompute2DSum(image, height, width, pitch) / (float)(width * height);
}

void CpuMatchingStages::hogMatch(const HogMatchInputs& in, const int* mx, const int* my, int n,
                                 const HogMatchResults& out) {
  cpu::HOGMatch(in.Image1, in.Image2, in.HOG1, in.HOG2, in.Cornerness, in.checkCorner, in.Energy1, in.Energy2,
                *in.average, out.match_x, out.match_y, out.match_dist, out.match_dist2, mx, my, n, in.height,
                in.width, in.pitch, in.radius);
}

void CpuMatchingStages::consistencyCheck(const int* m_x, const int* m_y, const int* forward_x,
                                         const int* forward_y, const int* backward_x, const int* backward_y,
                                         const float* forward_dist, const float* forward_nextdist, int n,
                                         float* Confidence, float* u, float* v, int height, int width, int pitch,
                                         int scale) {
  cpu::consistencyCheck(m_x, m_y, forward_x, forward_y, backward_x, backward_y, forward_dist, forward_nextdist, n,
                        Confidence, u, v, height, width, pitch, scale);
}

}  // namespace vemo
