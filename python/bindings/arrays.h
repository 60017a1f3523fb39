// Conversions between numpy arrays and the library's planar tensors, with
// the checks every entry point makes before any work: dtype, shape, size.
#pragma once

#include <nanobind/ndarray.h>

#include "image/tensor.h"

namespace vemopy {

namespace nb = nanobind;

// Any array on the CPU: dtype, shape and strides are checked here rather
// than by nanobind, so that a wrong one gets a message that names it.
using AnyArray = nb::ndarray<nb::ro, nb::device::cpu>;

struct FrameShape {
  int width, height;
};

// The checks of frameFromArray that need no pixel: dtype, shape, size.
FrameShape checkFrameArray(const AnyArray& array, const char* what);

// A frame from an H x W x 3 (colour) or H x W (grey, replicated) array of
// uint8, uint16 or float32, with any strides, as three planes of values on
// the 0..255 scale: uint8 as it is, uint16 times 255/65535 (as 16-bit PNG
// frames are read), float32 as given. `what` names the argument in
// messages. TypeError for another dtype; ValueError for another shape, a
// side below 2 or above the accepted frame size, or a non-finite float.
CTensor<float> frameFromArray(const AnyArray& array, const char* what);

// ValueError unless both frames have the same width and height.
void checkSameSize(const FrameShape& frame1, const FrameShape& frame2);

// A flow field from a float32 H x W x 2 array (u, v), any strides, as a
// two-plane tensor. TypeError for another dtype, ValueError for another
// shape or an empty field.
CTensor<float> flowFromArray(const AnyArray& array, const char* what);

// New numpy arrays that own copies of a tensor's values: any tensor (a
// flow, a frame) as float32 H x W x planes, a picture (values 0..255) as
// uint8 H x W x planes, a mask (one plane, non-zero where set) as bool H x W.
nb::ndarray<nb::numpy, float> tensorToArray(const CTensor<float>& tensor);
nb::ndarray<nb::numpy, uint8_t> pictureToArray(const CTensor<float>& picture);
nb::ndarray<nb::numpy, bool> maskToArray(const CTensor<float>& mask);

}  // namespace vemopy
