// PNG input and output through libpng.
#pragma once

#include <cstddef>

#include "image/image_limits.h"
#include "image/tensor.h"

namespace NImageIO {

// Decodes a PNG held in memory into a three-plane tensor of values 0..255:
// 8-bit samples unchanged, 16-bit samples scaled by 255/65535, palettes and
// low bit depths expanded, grey replicated to all three planes, alpha
// dropped. Images of more than maxPixels pixels or a side longer than
// kMaxImageSide are refused before pixel memory is allocated. Any failure
// prints "Could not decode <name>: <reason>" on stderr and throws
// EInvalidFileFormat, leaving image unchanged.
void decodePNG(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
               std::size_t maxPixels = kMaxImagePixels);

// Writes a 1-plane (grey) or 3-plane (RGB) image of values 0..255 as PNG
// with 8 or 16 bits per sample; samples are clamped to 0..255 and rounded
// (16-bit: value * 65535 / 255). The file appears atomically. A bad plane
// count or bit depth prints a message and throws ETensorIncompatibleSize;
// an unwritable file prints the reason and throws EFileNotFound or
// EFileWriteFailed.
void writePNG(const CTensor<float>& image, const char* filename, int bitDepth = 8);

}  // namespace NImageIO
