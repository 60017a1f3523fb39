// libpng reports errors through a callback that must not return; it jumps
// back with longjmp. Every setjmp below sits in a small function whose only
// locals are plain pointers fixed before the jump point, and all C++ objects
// (buffers, the tensor) live in the callers, so a jump never skips a
// destructor and never leaves an indeterminate value behind.
#include "image/png_io.h"

#include <png.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/diagnostics.h"
#include "image/atomic_file.h"
#include "image/exceptions.h"
#include "image/write_error.h"

namespace NImageIO {
namespace {

struct ErrorContext {
  char message[256] = "";
};

void onError(png_structp png, png_const_charp message) {
  auto* context = static_cast<ErrorContext*>(png_get_error_ptr(png));
  std::snprintf(context->message, sizeof context->message, "%s", message);
  png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

struct MemoryReader {
  const unsigned char* bytes;
  std::size_t size;
  std::size_t position;
};

void readFromMemory(png_structp png, png_bytep out, png_size_t length) {
  auto* reader = static_cast<MemoryReader*>(png_get_io_ptr(png));
  if (length > reader->size - reader->position) png_error(png, "file ends early");
  std::memcpy(out, reader->bytes + reader->position, length);
  reader->position += length;
}

struct Header {
  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int bitDepth = 0;        // after the transformations: 8 or 16
  int channels = 0;        // after the transformations: 1 (grey) or 3 (RGB)
  png_size_t rowBytes = 0;
};

// Reads the header and sets up expansion of palettes and low bit depths and
// removal of alpha. False after an error (message in the context).
bool readHeader(png_structp png, png_infop info, Header* header) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_info(png, info);
  png_set_expand(png);
  png_set_strip_alpha(png);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  header->width = png_get_image_width(png, info);
  header->height = png_get_image_height(png, info);
  header->bitDepth = png_get_bit_depth(png, info);
  header->channels = png_get_channels(png, info);
  header->rowBytes = png_get_rowbytes(png, info);
  return true;
}

bool readRows(png_structp png, png_infop info, png_bytep* rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_image(png, rows);
  png_read_end(png, nullptr);
  return true;
}

// Owns the read structures for the lifetime of one decode.
class ReadStruct {
 public:
  explicit ReadStruct(ErrorContext* context)
      : png_(png_create_read_struct(PNG_LIBPNG_VER_STRING, context, onError, onWarning)),
        info_(png_ ? png_create_info_struct(png_) : nullptr) {}
  ~ReadStruct() { png_destroy_read_struct(&png_, info_ ? &info_ : nullptr, nullptr); }
  png_structp png() const { return png_; }
  png_infop info() const { return info_; }

 private:
  png_structp png_;
  png_infop info_;
};

[[noreturn]] void refuse(const char* name, const char* reason) {
  vemo::reportf(stderr, "Could not decode %s: %s\n", name, reason);
  throw EInvalidFileFormat();
}

}  // namespace

void decodePNG(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
               std::size_t maxPixels) {
  ErrorContext context;
  ReadStruct read(&context);
  if (read.png() == nullptr || read.info() == nullptr) refuse(name, "out of memory");
  MemoryReader reader{bytes, size, 0};
  png_set_read_fn(read.png(), &reader, readFromMemory);
  png_set_user_limits(read.png(), kMaxImageSide, kMaxImageSide);
  // Ancillary chunks (text, profiles) are never needed: cap what they may take.
  png_set_chunk_malloc_max(read.png(), 1 << 20);

  Header header;
  if (!readHeader(read.png(), read.info(), &header)) refuse(name, context.message);
  if (header.width == 0 || header.height == 0) refuse(name, "empty image");
  const std::size_t pixels = static_cast<std::size_t>(header.width) * header.height;
  if (pixels > maxPixels) {
    char reason[128];
    std::snprintf(reason, sizeof reason, "%u x %u pixels is more than the %zu accepted", header.width,
                  header.height, maxPixels);
    refuse(name, reason);
  }
  if ((header.bitDepth != 8 && header.bitDepth != 16) || (header.channels != 1 && header.channels != 3)) {
    refuse(name, "unexpected sample layout after expansion");
  }
  const std::size_t sampleBytes = header.bitDepth / 8;
  if (header.rowBytes != static_cast<std::size_t>(header.width) * header.channels * sampleBytes) {
    refuse(name, "unexpected row size");
  }

  std::vector<unsigned char> pixelBytes(header.rowBytes * header.height);
  std::vector<png_bytep> rows(header.height);
  for (png_uint_32 y = 0; y < header.height; ++y) rows[y] = pixelBytes.data() + y * header.rowBytes;
  if (!readRows(read.png(), read.info(), rows.data())) refuse(name, context.message);

  const int width = static_cast<int>(header.width), height = static_cast<int>(header.height);
  CTensor<float> decoded(width, height, 3);
  const std::size_t plane = decoded.planeSize();
  const float scale16 = 255.0f / 65535.0f;
  for (std::size_t i = 0; i < plane; ++i) {
    for (int c = 0; c < 3; ++c) {
      const int source = header.channels == 1 ? 0 : c;
      const std::size_t at = (i * header.channels + source) * sampleBytes;
      const float value = sampleBytes == 1
                              ? static_cast<float>(pixelBytes[at])
                              : static_cast<float>((pixelBytes[at] << 8) | pixelBytes[at + 1]) * scale16;
      decoded.data[c * plane + i] = value;
    }
  }
  image = decoded;
}

namespace {

bool writeRows(png_structp png, png_infop info, FILE* file, const Header* header, png_bytep* rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, file);
  png_set_IHDR(png, info, header->width, header->height, header->bitDepth,
               header->channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  png_write_image(png, rows);
  png_write_end(png, nullptr);
  return true;
}

class WriteStruct {
 public:
  explicit WriteStruct(ErrorContext* context)
      : png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, context, onError, onWarning)),
        info_(png_ ? png_create_info_struct(png_) : nullptr) {}
  ~WriteStruct() { png_destroy_write_struct(&png_, info_ ? &info_ : nullptr); }
  png_structp png() const { return png_; }
  png_infop info() const { return info_; }

 private:
  png_structp png_;
  png_infop info_;
};

unsigned toSample(float value, int bitDepth) {
  const float clamped = std::isnan(value) ? 0.0f : std::fmin(255.0f, std::fmax(0.0f, value));
  return bitDepth == 8 ? static_cast<unsigned>(std::lround(clamped))
                       : static_cast<unsigned>(std::lround(clamped * (65535.0f / 255.0f)));
}

}  // namespace

void writePNG(const CTensor<float>& image, const char* filename, int bitDepth) {
  if ((image.zSize != 1 && image.zSize != 3) || image.elements() == 0 || (bitDepth != 8 && bitDepth != 16)) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: a PNG needs a non-empty image of 1 or 3 planes and 8 "
                 "or 16 bits (got %d x %d x %d, %d bits)\n",
                 image.xSize, image.ySize, image.zSize, bitDepth);
    throw ETensorIncompatibleSize();
  }
  Header header;
  header.width = image.xSize;
  header.height = image.ySize;
  header.bitDepth = bitDepth;
  header.channels = image.zSize;
  const std::size_t sampleBytes = bitDepth / 8;
  header.rowBytes = static_cast<std::size_t>(image.xSize) * image.zSize * sampleBytes;
  const std::size_t plane = image.planeSize();
  std::vector<unsigned char> bytes(header.rowBytes * image.ySize);
  std::vector<png_bytep> rows(image.ySize);
  for (int y = 0; y < image.ySize; ++y) {
    rows[y] = bytes.data() + y * header.rowBytes;
    for (int x = 0; x < image.xSize; ++x) {
      for (int c = 0; c < image.zSize; ++c) {
        const unsigned sample = toSample(image.data[c * plane + static_cast<std::size_t>(y) * image.xSize + x], bitDepth);
        unsigned char* out = rows[y] + (static_cast<std::size_t>(x) * image.zSize + c) * sampleBytes;
        if (sampleBytes == 1) {
          out[0] = static_cast<unsigned char>(sample);
        } else {
          out[0] = static_cast<unsigned char>(sample >> 8);
          out[1] = static_cast<unsigned char>(sample & 0xff);
        }
      }
    }
  }

  CAtomicFile output(filename);
  FILE* file = std::fopen(output.tempPath(), "wb");
  if (file == nullptr) {
    vemo::reportf(stderr, "Could not open %s\n", filename);
    throw EFileNotFound();
  }
  ErrorContext context;
  bool written = false;
  {
    WriteStruct write(&context);
    if (write.png() != nullptr && write.info() != nullptr) {
      written = writeRows(write.png(), write.info(), file, &header, rows.data());
    } else {
      std::snprintf(context.message, sizeof context.message, "out of memory");
    }
  }
  const bool flushed = std::fflush(file) == 0 && std::ferror(file) == 0;
  const bool closed = std::fclose(file) == 0;
  if (!written || !flushed || !closed) {
    vemo::reportf(stderr, "Could not write %s: %s\n", filename, written ? "write error" : context.message);
    throw EFileWriteFailed();
  }
  output.commit();
}

}  // namespace NImageIO
