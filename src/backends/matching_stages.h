// The executor behind the descriptor-matching stage.
//
// The matching driver (src/matching/) is written once against this interface
// and against Backend, which supplies the float planes. A matching executor
// adds the integer point lists and the stages of the matcher; pointers handed
// to it are addresses in the memory of the Backend it was made for. Failures
// are reported like Backend's: message on standard error, then an exception.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>

#include "pixel/hog_match.h"

namespace vemo {

class Backend;
class MatchingStages;

// A run of ints in a matching executor's memory, freed by it when the handle
// dies. Move-only; the destructor never throws.
class IntBuffer {
 public:
  IntBuffer() = default;
  IntBuffer(MatchingStages* owner, int* data, std::size_t count) : owner_(owner), data_(data), count_(count) {}
  IntBuffer(const IntBuffer&) = delete;
  IntBuffer& operator=(const IntBuffer&) = delete;
  IntBuffer(IntBuffer&& other) noexcept { swap(other); }
  IntBuffer& operator=(IntBuffer&& other) noexcept {
    if (this != &other) {
      reset();
      swap(other);
    }
    return *this;
  }
  ~IntBuffer() { reset(); }

  int* data() const { return data_; }
  std::size_t count() const { return count_; }
  void reset() noexcept;

 private:
  void swap(IntBuffer& other) noexcept {
    std::swap(owner_, other.owner_);
    std::swap(data_, other.data_);
    std::swap(count_, other.count_);
  }
  MatchingStages* owner_ = nullptr;
  int* data_ = nullptr;
  std::size_t count_ = 0;
};

// Frames, descriptor fields and per-pixel measures one search reads. All
// planes share height, width and pitch; frames have three colour planes and
// HOG fields 15 orientation planes, stacked at pitch * height floats.
struct HogMatchInputs {
  const float* Image1;      // frame of the points
  const float* Image2;      // frame searched
  const float* HOG1;
  const float* HOG2;
  const float* Cornerness;  // confidence of frame 1
  int checkCorner;          // non-zero: skip points with low Cornerness
  const float* Energy1;     // per-pixel sum of HOG1's planes
  const float* Energy2;
  const float* average;     // mean of Cornerness: one float in the executor's memory
  int height, width, pitch;
  int radius = kMatchRadius;  // half-width of the search window, 1 to kMatchRadius
};

// Result arrays of one search over n points.
struct HogMatchResults {
  int* match_x;
  int* match_y;
  float* match_dist;   // best distance
  float* match_dist2;  // second-best distance
};

class MatchingStages {
 public:
  virtual ~MatchingStages() = default;

  // ---- integer arrays -----------------------------------------------------
  virtual IntBuffer allocateInts(std::size_t count) = 0;
  virtual void uploadInts(int* dst, const int* src, std::size_t count) = 0;
  virtual void clearInts(int* dst, std::size_t count) = 0;

  // ---- stages -------------------------------------------------------------
  // HOG field (nOri planes) of an image of nChannels planes.
  virtual void computeHOG(const float* image, float* hog, int nChannels, int nOri, int height, int width,
                          int pitch) = 0;
  // Cornerness of an image of nChannels planes.
  virtual void computeConfidence(const float* image, float* conf, int height, int width, int pitch,
                                 int nChannels) = 0;
  // Per-pixel sum of the nOri planes of a HOG field.
  virtual void computeEnergy(const float* hog, float* energy, int height, int width, int pitch, int nOri) = 0;
  // Mean of the width x height pixels of a plane (their sum in a fixed
  // order, divided by width * height in single precision), written to one
  // float in this executor's memory, where the search reads it: the host
  // never waits for it.
  virtual void average2D(const float* image, int height, int width, int pitch, float* average) = 0;
  // Best match in inputs.Image2 of each of the n points (mx[p], my[p]).
  virtual void hogMatch(const HogMatchInputs& inputs, const int* mx, const int* my, int n,
                        const HogMatchResults& results) = 0;
  // Consistent matches of the n grid points into u, v, Confidence, planes
  // of height x width at `pitch`. The points lie on frames reduced by the
  // integer `scale` (1: the planes' own frame); see consistencyCheckAt.
  virtual void consistencyCheck(const int* m_x, const int* m_y, const int* forward_x, const int* forward_y,
                                const int* backward_x, const int* backward_y, const float* forward_dist,
                                const float* forward_nextdist, int n, float* Confidence, float* u, float* v,
                                int height, int width, int pitch, int scale) = 0;

  // Called by IntBuffer. Never throws.
  virtual void releaseInts(int* data) noexcept = 0;
};

inline void IntBuffer::reset() noexcept {
  if (owner_ != nullptr && data_ != nullptr) owner_->releaseInts(data_);
  owner_ = nullptr;
  data_ = nullptr;
  count_ = 0;
}

// The matching executor that works on `backend`'s memory. Prints a message
// and throws BackendError when there is none for that backend.
std::unique_ptr<MatchingStages> makeMatchingStages(Backend& backend);

}  // namespace vemo
