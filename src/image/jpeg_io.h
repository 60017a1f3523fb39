// JPEG input and output through libjpeg.
#pragma once

#include <cstddef>

#include "image/image_limits.h"
#include "image/tensor.h"

namespace NImageIO {

// Decodes a baseline or progressive JPEG held in memory into a three-plane
// tensor of values 0..255 (grey images replicated to all three planes).
// CMYK images are refused. Images of more than maxPixels pixels are refused
// before decoding starts. Any failure prints "Could not decode <name>:
// <reason>" on stderr and throws EInvalidFileFormat, leaving image unchanged.
void decodeJPEG(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
                std::size_t maxPixels = kMaxImagePixels);

// Writes a 1- or 3-plane image of values 0..255 (clamped, rounded) as a
// JPEG of the given quality (1..100), atomically. Failures print the reason
// and throw ETensorIncompatibleSize, EFileNotFound or EFileWriteFailed.
void writeJPEG(const CTensor<float>& image, const char* filename, int quality = 95);

}  // namespace NImageIO
