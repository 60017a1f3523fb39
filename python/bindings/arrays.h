// Conversions between numpy arrays and the library's public types, with the
// checks that only the binding can make (dtype, number of dimensions); the
// library checks the rest (sizes, strides, values) and says what is wrong.
#pragma once

#include <cstdint>
#include <vector>

#include <nanobind/ndarray.h>

#include "image/tensor.h"
#include "vemo/vemo.hpp"

namespace vemopy {

namespace nb = nanobind;

// Any array on the CPU: dtype, shape and strides are checked here rather
// than by nanobind, so that a wrong one gets a message that names it.
using AnyArray = nb::ndarray<nb::ro, nb::device::cpu>;

// A frame array seen by the library: an H x W x 3 (colour) or H x W (grey)
// array of uint8, uint16 or float32. Rows at any stride are viewed in place;
// other layouts (a channel stride other than one sample, a reversed or
// transposed array) are copied into packed rows first, which `copy` holds.
// TypeError for another dtype, ValueError for another shape.
struct FrameArray {
  vemo::ImageView view;
  std::vector<unsigned char> copy;
};
void viewFrame(const AnyArray& array, const char* what, FrameArray& out);

// A flow field from a float32 H x W x 2 array (u, v), any strides.
// TypeError for another dtype, ValueError for another shape or an empty
// field.
vemo::Flow flowFromArray(const AnyArray& array, const char* what);

// New numpy arrays that own copies of the values: a flow as float32
// H x W x 2, an image as H x W x channels of its pixel type (uint8 or
// float32), a mask (1 where set) as bool H x W, and a planar tensor as
// float32 H x W x planes.
nb::ndarray<nb::numpy, float> flowToArray(const vemo::Flow& flow);
nb::object imageToArray(const vemo::Image& image);
nb::ndarray<nb::numpy, bool> maskToArray(const std::vector<std::uint8_t>& mask, int width, int height);
nb::ndarray<nb::numpy, float> tensorToArray(const CTensor<float>& tensor);

}  // namespace vemopy
