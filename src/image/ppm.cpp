// Binary PPM (P6) input into a three-plane tensor.
//
// The header is parsed byte by byte: anything before the first 'P' is
// ignored, the magic must be "P6", comment lines (starting with '#') and blank
// lines may follow the magic line, then come width and height, and the
// maximal value, normally on a line of its own (comment lines may precede it;
// it may also end the size line).
// Samples are always one byte and are stored unscaled (0..255), planar: all
// red values in row-major order, then all green, then all blue.
//
// The whole file is read into memory first, so every size in the header can
// be checked against the bytes really present before anything is allocated,
// and a broken file is refused with a message instead of being read past its
// end. On any failure the tensor keeps its previous contents.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "common/diagnostics.h"
#include "image/exceptions.h"
#include "image/tensor.h"

namespace {

constexpr int kEnd = -1;
constexpr int kLineFeed = 10;

// Reads the whole file; prints the reason and throws EFileNotFound when it
// cannot be opened or read.
std::vector<unsigned char> readWholeFile(const char* filename) {
  FILE* file = std::fopen(filename, "rb");
  if (file == nullptr) {
    vemo::reportf(stderr, "File not found: %s\n", filename);
    throw EFileNotFound();
  }
  std::vector<unsigned char> bytes;
  unsigned char chunk[65536];
  size_t got;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
    bytes.insert(bytes.end(), chunk, chunk + got);
  }
  const bool failed = std::ferror(file) != 0;
  const int error = errno;
  std::fclose(file);
  if (failed) {
    vemo::reportf(stderr, "Could not read %s: %s\n", filename, std::strerror(error));
    throw EFileNotFound();
  }
  return bytes;
}

// A read cursor over the file's bytes; get() yields kEnd past the last byte.
class ByteCursor {
 public:
  explicit ByteCursor(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}
  int get() { return pos_ < bytes_.size() ? bytes_[pos_++] : kEnd; }
  int peek() const { return pos_ < bytes_.size() ? bytes_[pos_] : kEnd; }
  size_t remaining() const { return bytes_.size() - pos_; }
  const unsigned char* here() const { return bytes_.data() + pos_; }

 private:
  const std::vector<unsigned char>& bytes_;
  size_t pos_ = 0;
};

bool isDigit(int c) { return c >= '0' && c <= '9'; }

[[noreturn]] void refuse(const char* filename, const std::string& problem) {
  vemo::reportf(stderr, "Exception EInvalidFileFormat: File is not in PPM format: %s: %s\n", filename,
                problem.c_str());
  throw EInvalidFileFormat();
}

// Skips up to and including the next line feed; false when the file ends
// first.
bool skipLine(ByteCursor& in) {
  for (int c = in.get(); c != kLineFeed; c = in.get()) {
    if (c == kEnd) return false;
  }
  return true;
}

// Accumulates a decimal number whose first digit is `c`; consumes and returns
// in `terminator` the byte after the last digit.
int readNumber(ByteCursor& in, int c, const char* filename, const char* what, int& terminator) {
  int value = 0;
  for (; isDigit(c); c = in.get()) {
    const int digit = c - '0';
    if (value > (INT_MAX - digit) / 10) refuse(filename, std::string(what) + " is too large");
    value = value * 10 + digit;
  }
  terminator = c;
  return value;
}

// Reads the maximal-value line up to and including its line feed, after any
// comment lines. Only one byte per sample is supported: a value above 255
// announces two-byte samples and is refused. A line that holds no number is
// skipped as it is.
void checkMaximalValue(ByteCursor& in, const char* filename) {
  while (in.peek() == '#') {
    if (!skipLine(in)) refuse(filename, "the header ends inside a comment");
  }
  while (in.peek() == ' ' || in.peek() == '\t') in.get();
  if (isDigit(in.peek())) {
    int terminator;
    const int maxValue = readNumber(in, in.get(), filename, "the maximal value", terminator);
    if (maxValue > 255) {
      refuse(filename, "maximal value " + std::to_string(maxValue) +
                           ": only one byte per sample is supported");
    }
    if (terminator == kLineFeed) return;
    if (terminator == kEnd) refuse(filename, "the header ends before the pixel data");
  }
  if (!skipLine(in)) refuse(filename, "the header ends before the pixel data");
}

struct PpmHeader {
  int width = 0;
  int height = 0;
};

PpmHeader parseHeader(ByteCursor& in, const char* filename) {
  int c;
  do {
    c = in.get();
  } while (c != 'P' && c != kEnd);
  if (c == kEnd) refuse(filename, "no magic number \"P6\" found");
  if (in.get() != '6') {
    vemo::reportf(stderr, "Exception EInvalidFileFormat: File is not in PPM format\n");
    throw EInvalidFileFormat();
  }
  if (!skipLine(in)) refuse(filename, "the header ends after the magic number");

  // Comment lines and blank lines (line feeds, spaces, tabs, carriage
  // returns) may stand between the magic line and the size line.
  for (c = in.get();; c = in.get()) {
    if (c == '#') {
      if (!skipLine(in)) refuse(filename, "the header ends inside a comment");
    } else if (c != kLineFeed && c != ' ' && c != '\t' && c != '\r') {
      break;
    }
  }
  if (c == '-') refuse(filename, "the width is negative");
  if (!isDigit(c)) refuse(filename, "the width is not a number");
  PpmHeader h;
  int terminator;
  h.width = readNumber(in, c, filename, "the width", terminator);
  if (terminator == kEnd) refuse(filename, "the header ends after the width");

  do {
    c = in.get();
    if (c == '-') refuse(filename, "the height is negative");
  } while (c != kEnd && !isDigit(c));
  if (c == kEnd) refuse(filename, "the height is missing");
  h.height = readNumber(in, c, filename, "the height", terminator);
  if (h.width == 0 || h.height == 0) refuse(filename, "the width or the height is zero");

  // The maximal value normally stands on the line after the size line. When
  // it follows the height on the size line itself, the pixel data starts on
  // the next line instead of one line later.
  if (terminator == kEnd) refuse(filename, "the header ends after the height");
  if (terminator != kLineFeed) {
    while (in.peek() == ' ' || in.peek() == '\t') in.get();
    if (isDigit(in.peek())) {
      checkMaximalValue(in, filename);
      return h;
    }
    if (!skipLine(in)) refuse(filename, "the header ends on the size line");
  }
  checkMaximalValue(in, filename);
  return h;
}

}  // namespace

template <typename T>
void CTensor<T>::readFromPPM(const char* filename) {
  const std::vector<unsigned char> bytes = readWholeFile(filename);
  ByteCursor in(bytes);
  const PpmHeader h = parseHeader(in, filename);

  const size_t plane = static_cast<size_t>(h.width) * static_cast<size_t>(h.height);
  const size_t needed = plane * 3;
  if (needed > static_cast<size_t>(INT_MAX)) {
    refuse(filename, std::to_string(h.width) + " x " + std::to_string(h.height) +
                         " pixels is too large an image");
  }
  if (needed > in.remaining()) {
    refuse(filename, "the pixel data is truncated: " + std::to_string(h.width) + " x " +
                         std::to_string(h.height) + " pixels need " + std::to_string(needed) +
                         " bytes, " + std::to_string(in.remaining()) + " are left");
  }

  T* fresh = new T[needed];
  const unsigned char* rgb = in.here();
  for (size_t i = 0; i < plane; ++i) {
    fresh[i] = static_cast<T>(rgb[3 * i]);
    fresh[plane + i] = static_cast<T>(rgb[3 * i + 1]);
    fresh[2 * plane + i] = static_cast<T>(rgb[3 * i + 2]);
  }
  delete[] data;
  data = fresh;
  xSize = h.width;
  ySize = h.height;
  zSize = 3;
}

template void CTensor<float>::readFromPPM(const char* filename);
