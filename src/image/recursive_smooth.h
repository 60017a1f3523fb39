// Recursive (second-order causal + anticausal) Gaussian smoothing along rows
// (X) or columns (Y), in place, every plane. Cost per sample is independent
// of sigma. Lines shorter than two samples cannot be filtered by the
// recursion: they are left unchanged (a one-sample line is its own blur).
#pragma once

#include "image/matrix.h"
#include "image/tensor.h"

namespace NFilter {
void recursiveSmoothX(CTensor<float>& t, float sigma);
void recursiveSmoothY(CTensor<float>& t, float sigma);
void recursiveSmoothX(CMatrix<float>& m, float sigma);
void recursiveSmoothY(CMatrix<float>& m, float sigma);
}  // namespace NFilter
