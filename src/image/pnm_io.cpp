#include "image/pnm_io.h"

#include <cstdio>

#include "common/diagnostics.h"
#include "image/exceptions.h"

namespace NImageIO {
namespace {

[[noreturn]] void refuse(const char* name, const char* reason) {
  vemo::reportf(stderr, "Could not decode %s: %s\n", name, reason);
  throw EInvalidFileFormat();
}

bool isSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// Reads one decimal header field after white space and comments; false when
// there is none or it exceeds limit.
bool readField(const unsigned char* bytes, std::size_t size, std::size_t& at, long limit, long& value) {
  while (at < size) {
    if (bytes[at] == '#') {
      while (at < size && bytes[at] != '\n') ++at;
    } else if (isSpace(bytes[at])) {
      ++at;
    } else {
      break;
    }
  }
  if (at >= size || bytes[at] < '0' || bytes[at] > '9') return false;
  value = 0;
  while (at < size && bytes[at] >= '0' && bytes[at] <= '9') {
    value = value * 10 + (bytes[at] - '0');
    if (value > limit) return false;
    ++at;
  }
  return true;
}

}  // namespace

void decodePNM(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
               std::size_t maxPixels) {
  if (size < 2 || bytes[0] != 'P' || (bytes[1] != '5' && bytes[1] != '6')) refuse(name, "not a binary PGM or PPM");
  const int channels = bytes[1] == '5' ? 1 : 3;
  std::size_t at = 2;
  long width = 0, height = 0, maxval = 0;
  if (!readField(bytes, size, at, kMaxImageSide, width) || !readField(bytes, size, at, kMaxImageSide, height) ||
      !readField(bytes, size, at, 65535, maxval)) {
    refuse(name, "bad header (width, height and maximal value up to 65535 expected)");
  }
  if (width == 0 || height == 0 || maxval == 0) refuse(name, "empty image or zero maximal value");
  // Exactly one white-space byte separates the header from the samples.
  if (at >= size || !isSpace(bytes[at])) refuse(name, "bad header end");
  ++at;
  const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  if (pixels > maxPixels) refuse(name, "too many pixels");
  const std::size_t sampleBytes = maxval > 255 ? 2 : 1;
  const std::size_t needed = pixels * channels * sampleBytes;
  if (size - at < needed) refuse(name, "file ends before its last sample");

  CTensor<float> decoded(static_cast<int>(width), static_cast<int>(height), 3);
  const float scale = maxval == 255 ? 1.0f : 255.0f / static_cast<float>(maxval);
  const unsigned char* samples = bytes + at;
  for (std::size_t i = 0; i < pixels; ++i) {
    for (int c = 0; c < 3; ++c) {
      const std::size_t s = (i * channels + (channels == 1 ? 0 : c)) * sampleBytes;
      const unsigned raw = sampleBytes == 1 ? samples[s] : (unsigned(samples[s]) << 8) | samples[s + 1];
      const float value = maxval == 255 ? static_cast<float>(raw) : static_cast<float>(raw) * scale;
      decoded.data[c * pixels + i] = value > 255.0f ? 255.0f : value;
    }
  }
  image = decoded;
}

}  // namespace NImageIO
