// CPU executor of the cornerness of a frame, the image sum behind its mean,
// and the forward-backward consistency check of the matches.
#pragma once

namespace vemo::cpu {

// conf = gradient magnitude times the smaller eigenvalue of the structure
// tensor of `image` (nChannels planes) smoothed by a Gaussian of sigma 4.
void gComputeConfidence(const float* image, float* conf, int height, int width, int pitch, int nChannels);

// Sum of the width x height pixels: each row summed by 256 strided partial
// sums folded pairwise, then the row sums added in row order, all in single
// precision. The order is fixed, so the value does not depend on threads.
float gCompute2DSum(const float* image, int height, int width, int pitch);

// Writes the displacement and weight of every consistent match of the
// `subsize` grid points into u, v and Confidence (frame-1 planes, cleared by
// the caller). Points whose grid position lies outside the frame are refused.
// Points on frames reduced by `scale` are written as consistencyCheckAt says.
void consistencyCheck(const int* m_x, const int* m_y, const int* forward_x, const int* forward_y,
                      const int* backward_x, const int* backward_y, const float* forward_dist,
                      const float* forward_nextdist, int subsize, float* Confidence, float* u, float* v,
                      int height, int width, int pitch, int scale = 1);

}  // namespace vemo::cpu
