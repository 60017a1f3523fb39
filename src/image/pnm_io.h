// Binary PGM (P5) and PPM (P6) input, 8 or 16 bits per sample.
#pragma once

#include <cstddef>

#include "image/image_limits.h"
#include "image/tensor.h"

namespace NImageIO {

// Decodes a P5 or P6 image held in memory into a three-plane tensor of
// values 0..255: samples are scaled by 255 / maxval (an 8-bit file with
// maxval 255 keeps its values exactly) and grey is replicated to all three
// planes. Comment lines may appear anywhere in the header. Any failure
// prints "Could not decode <name>: <reason>" on stderr and throws
// EInvalidFileFormat, leaving image unchanged.
void decodePNM(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
               std::size_t maxPixels = kMaxImagePixels);

}  // namespace NImageIO
