// Host filter masks and mask filtering along one axis of a matrix or tensor.
//
// A mask is a CVector of weights plus an offset: element k weighs the sample
// at relative position k - offset, and masks are correlated, not flipped.
// Lines are extended by mirroring about their end half-samples (the edge
// sample is repeated: ..., s1, s0 | s0, s1, ... | s(W-1), s(W-2), ...); masks
// longer than twice a line keep reflecting, so every tap reads inside the
// line. The box filters instead shrink their window at the ends of a line.
#pragma once

#include "image/matrix.h"
#include "image/tensor.h"
#include "image/vector.h"

template <typename T>
class CFilter : public CVector<T> {
 public:
  CFilter() = default;
  // A mask of `size` (uninitialised) weights whose element `offset` weighs
  // the centre sample.
  CFilter(int size, int offset) : CVector<T>(size), offset(offset) {}

  int offset = 0;
};

// Sampled Gaussian of standard deviation sigma on [-r, r], r =
// ceil(sigma * precision), normalised so that the absolute weights sum to 1.
// A non-positive sigma or radius gives the identity mask [1].
template <typename T>
class CSmooth : public CFilter<T> {
 public:
  CSmooth(float sigma, float precision);
};

// Finite-difference first derivative with `size` taps, 2 <= size <= 10. Odd
// sizes are central differences at the sample; even sizes are staggered
// differences between the sample at the offset, (size - 1) / 2, and the next
// one. Other sizes print a message and throw EFilterNotAvailable.
template <typename T>
class CDerivative : public CFilter<T> {
 public:
  explicit CDerivative(int size);
};

namespace NFilter {

// result = source correlated with the mask along x, y or z: the axis is the
// position of the mask among the three trailing arguments, the integers in
// the other positions are ignored. Source and result must have the same
// sizes (otherwise a message and EFilterIncompatibleSize); they may be the
// same object. Sums run in single precision in the order of the mask.
void filter(const CTensor<float>& source, CTensor<float>& result, const CFilter<float>& filterX,
            int, int);
void filter(const CTensor<float>& source, CTensor<float>& result, int,
            const CFilter<float>& filterY, int);
void filter(const CTensor<float>& source, CTensor<float>& result, int, int,
            const CFilter<float>& filterZ);
void filter(const CMatrix<float>& source, CMatrix<float>& result, const CFilter<float>& filterX,
            int);
void filter(const CMatrix<float>& source, CMatrix<float>& result, int,
            const CFilter<float>& filterY);

// Running mean over a window of `size` samples, rounded up to odd (width b,
// half-width b / 2), along x or y. Near the ends of a line the window is cut
// to the samples inside it and the mean taken over those. Same size rule as
// filter(); a negative size prints a message and throws
// std::invalid_argument.
void boxFilterX(const CTensor<float>& source, CTensor<float>& result, int size);
void boxFilterY(const CTensor<float>& source, CTensor<float>& result, int size);
void boxFilterX(const CMatrix<float>& source, CMatrix<float>& result, int size);
void boxFilterY(const CMatrix<float>& source, CMatrix<float>& result, int size);

}  // namespace NFilter
