#include "image/read_image.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/diagnostics.h"
#include "image/exceptions.h"
#include "image/jpeg_io.h"
#include "image/png_io.h"
#include "image/pnm_io.h"

namespace NImageIO {

void decodeImage(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
                 std::size_t maxPixels) {
  static const unsigned char kPng[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  if (size >= 8 && std::memcmp(bytes, kPng, 8) == 0) {
    decodePNG(bytes, size, name, image, maxPixels);
  } else if (size >= 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff) {
    decodeJPEG(bytes, size, name, image, maxPixels);
  } else if (size >= 2 && bytes[0] == 'P' && (bytes[1] == '5' || bytes[1] == '6')) {
    decodePNM(bytes, size, name, image, maxPixels);
  } else {
    vemo::reportf(stderr, "Could not decode %s: not a PNG, JPEG, PGM (P5) or PPM (P6) file\n", name);
    throw EInvalidFileFormat();
  }
}

void readImage(const std::string& filename, CTensor<float>& image) {
  FILE* file = std::fopen(filename.c_str(), "rb");
  if (file == nullptr) {
    vemo::reportf(stderr, "File not found: %s\n", filename.c_str());
    throw EFileNotFound();
  }
  std::vector<unsigned char> bytes;
  unsigned char chunk[65536];
  std::size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
  const bool failed = std::ferror(file) != 0;
  const int error = errno;
  std::fclose(file);
  if (failed) {
    vemo::reportf(stderr, "Could not read %s: %s\n", filename.c_str(), std::strerror(error));
    throw EFileNotFound();
  }
  decodeImage(bytes.data(), bytes.size(), filename.c_str(), image);
}

}  // namespace NImageIO
