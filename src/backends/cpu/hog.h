// CPU executor of the orientation-histogram field and its per-pixel energy.
// Planes are laid out like device images (row stride `pitch` floats, plane
// stride pitch * height); only columns < width are read and written.
#pragma once

namespace vemo::cpu {

// Fills `hog` (nOri planes) with the HOG field of `image` (nChannels planes):
// per channel the central-difference gradient (short-mask borders) is
// binned by orientation and added to one field, the field is smoothed
// circularly across the bins and then box-averaged over 7 x 7 pixels with
// the short-mask border rule.
void gComputeHOG(const float* image, float* hog, int nChannels, int nOri, int height, int width, int pitch);

// Energy(x, y) = sum of the nOri planes of `hog` at (x, y), in bin order.
void computeEnergy(const float* hog, float* Energy, int height, int width, int pitch, int nOri);

}  // namespace vemo::cpu
