// Backward warping of host planes laid out like device images.
#pragma once

namespace vemo::cpu {

// Warps the nChan planes of `src` (frame 2) by (u, v) into `outarray`
// (nChan planes) and writes the in-image mask `confidence` (one plane, 1
// inside, 0 outside, where outarray takes First's value). Any nChan >= 1 is
// handled; nChan < 1 is refused (message on stderr, std::invalid_argument).
void gWarpMotion(float* outarray, const float* u, const float* v, const float* src, const float* First,
                 int nChan, float* confidence, int height, int width, int pitch);

}  // namespace vemo::cpu
