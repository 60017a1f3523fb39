// A bound that lets the CPU search drop candidates before forming their
// distance.
//
// By the triangle inequality a candidate's descriptor distance is at least
// the square of the gap between the two descriptors' Euclidean norms. Once a
// point's search holds a second-best distance, a candidate whose norm gap
// exceeds its square root could change neither the best nor the second best,
// and is dropped before any term of its distance is formed. The norms of the
// candidate frame are formed once per search call.
//
// The test leaves a wide margin for rounding. The norms are formed in double
// precision and rounded to float (relative error below 1e-7); the test
// subtracts 1e-5 of the norms' sum, and 1e-18, from the gap and compares it
// with the square root of the bound enlarged by 1e-3. A dropped candidate's
// exact distance therefore exceeds both the bound by a factor of more than
// 1 + 1e-3 and 1e-36 (so no term's underflow matters), while the
// single-precision chain that forms it (135 non-negative terms) falls short
// of the exact value by a factor of at most 1 - 1e-5: its distance would
// have exceeded the bound too. NaNs fail the test, so such candidates go on
// to the distance, which is NaN and changes nothing.
#pragma once

#include <vector>

namespace vemo::cpu {

// Per pixel of a frame's HOG field (15 planes): the Euclidean norm of its
// descriptor, 0 where the descriptor would leave the frame.
std::vector<float> descriptorNorms(const float* hog, int height, int width, int pitch);

// Norm of a 135-value descriptor.
float descriptorNorm(const float* desc);

// The smallest norm gap that still lets a candidate reach `bound`.
inline float normReach(float bound) { return __builtin_sqrtf(bound) * 1.001f; }

// Whether a candidate of norm nv is out of reach of a point of norm nq.
inline bool normGapExceeds(float nq, float nv, float reach) {
  const float gap = __builtin_fabsf(nq - nv);
  return gap - (1e-5f * (nq + nv) + 1e-18f) > reach;
}

}  // namespace vemo::cpu
