// Frame input in the common formats: PNG, JPEG and binary PGM/PPM, told
// apart by their first bytes, not by the file name.
#pragma once

#include <cstddef>
#include <string>

#include "image/image_limits.h"
#include "image/tensor.h"

namespace NImageIO {

// Decodes a file's bytes into a three-plane tensor of values 0..255 (grey
// replicated, alpha dropped). An unknown format or a broken file prints
// "Could not decode <name>: <reason>" on stderr and throws
// EInvalidFileFormat, leaving image unchanged.
void decodeImage(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
                 std::size_t maxPixels = kMaxImagePixels);

// Reads and decodes a file. A file that cannot be opened or read prints
// "File not found: <name>" (or the read error) on stderr and throws
// EFileNotFound.
void readImage(const std::string& filename, CTensor<float>& image);

}  // namespace NImageIO
