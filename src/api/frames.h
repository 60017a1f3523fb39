// Conversions between the public types and the library's planar tensors,
// with the checks every entry point makes before any work.
#pragma once

#include "image/tensor.h"
#include "vemo/flow.hpp"
#include "vemo/image.hpp"

namespace vemo::api {

// InvalidInput unless `view` describes readable pixels: data not null, a
// supported pixel type, 1 or 3 channels, a row stride (if given) of at
// least one row and a whole number of samples, sides of at least
// `minSide` and within the accepted frame size. `what` names the argument.
void checkView(const ImageView& view, const char* what, int minSide);

// A frame as the method takes it: three planes of values on the 0..255
// scale (grey replicated; uint16 scaled by 255/65535), after checkView.
// InvalidInput for a float sample that is not finite.
CTensor<float> frameFromView(const ImageView& view, const char* what, int minSide = 2);

// A W x H x 2 tensor (planes u, v) and back.
CTensor<float> tensorFromFlow(const Flow& flow);
Flow flowFromTensor(const CTensor<float>& tensor);

// An owning image of the tensor's planes of 0..255 values, as uint8 samples
// (clamped and rounded, as the picture writers do).
Image pictureFromTensor(const CTensor<float>& picture);

}  // namespace vemo::api
