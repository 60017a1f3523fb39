// Pictures written in the format their file name asks for.
#pragma once

#include <string>

#include "image/tensor.h"

namespace NImageIO {

enum class PictureFormat { Png, Jpeg, Unknown };

// The format named by a file name's extension, in any letter case: .png,
// or .jpg / .jpeg. Anything else is Unknown.
PictureFormat pictureFormatOf(const std::string& filename);

// Writes a 1- or 3-plane image of values 0..255 as PNG (8 bits) or JPEG
// (quality 95) as its extension says, atomically. An unknown extension
// prints a message and throws EInvalidFileFormat before anything is
// written; the writers' own failures are theirs (see png_io.h, jpeg_io.h).
void writePicture(const CTensor<float>& image, const std::string& filename);

}  // namespace NImageIO
