// Forward-backward consistency: where the forward flow and the backward flow
// at its target do not cancel, the pixel is occluded in the second frame (or
// leaves it).
#pragma once

#include "image/tensor.h"

// Returns a W x H x 1 mask, 255 for inconsistent pixels and 0 for consistent
// ones. With f the forward vector at x and b the backward flow sampled
// bilinearly at x + f, a pixel is inconsistent when
//   |f + b|^2 > 0.01 (|f|^2 + |b|^2) + 0.5,
// when x + f lies outside the frame, or when a vector is not finite: the
// tolerance grows with the motion, as errors of both flows do. Both fields
// must be W x H x 2; otherwise prints a message and throws
// ETensorIncompatibleSize.
CTensor<float> occlusionMask(const CTensor<float>& forward, const CTensor<float>& backward);
