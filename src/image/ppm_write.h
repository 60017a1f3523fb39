// Binary PPM (P6) output of a float image, for test inputs and demos.
#pragma once

#include "image/tensor.h"

namespace NImageIO {
// Writes a 1- or 3-plane image as P6 with maximal value 255: each sample is
// rounded to the nearest integer and clamped to 0..255 (one plane is written
// as grey). An unopenable file prints "Could not open <name>" on stderr and
// throws EFileNotFound; a failed write removes the file, prints why and
// throws EFileWriteFailed; any other plane count or an empty image prints a
// message and throws ETensorIncompatibleSize.
void writePPM(const CTensor<float>& image, const char* filename);
}  // namespace NImageIO
