// Fuzzes the frame decoders (PNG, JPEG, PGM/PPM, chosen by the first bytes)
// with arbitrary data. Rejections (EInvalidFileFormat after a message) are
// expected; crashes, hangs, leaks and sanitizer reports are not. The pixel
// limit is lowered so that a small input promising a large image is decoded
// quickly instead of tripping the memory limit.
#include <cstdint>

#include "image/read_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CTensor<float> image;
  try {
    NImageIO::decodeImage(data, size, "fuzz input", image, size_t(1) << 20);
  } catch (const EInvalidFileFormat&) {
  }
  return 0;
}
