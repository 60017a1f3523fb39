// libjpeg's default error handler exits the process; ours formats the
// message and jumps back with longjmp instead. As for PNG, each setjmp sits
// in a small function whose locals are plain pointers set before the jump
// point, and every C++ object lives in the callers.
#include "image/jpeg_io.h"

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <vector>

// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>
#include <jerror.h>

#include "image/atomic_file.h"
#include "image/exceptions.h"
#include "image/write_error.h"

#include "common/diagnostics.h"

namespace NImageIO {
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  bool truncated;  // the data ended before the last scan line
};

void onError(j_common_ptr info) {
  auto* manager = reinterpret_cast<ErrorManager*>(info->err);
  (*info->err->format_message)(info, manager->message);
  longjmp(manager->jump, 1);
}

// Warnings are not printed. Most (stray bytes before a marker) are harmless,
// but on a file that ends early libjpeg fills the missing rows with grey and
// carries on: that one is noted so the frame can be refused.
void onMessage(j_common_ptr info, int level) {
  if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) {
    reinterpret_cast<ErrorManager*>(info->err)->truncated = true;
  }
}

void installErrorManager(ErrorManager* manager) {
  jpeg_std_error(&manager->base);
  manager->base.error_exit = onError;
  manager->base.emit_message = onMessage;
  manager->message[0] = '\0';
  manager->truncated = false;
}

struct Header {
  JDIMENSION width = 0;
  JDIMENSION height = 0;
  int components = 0;
};

bool readHeader(jpeg_decompress_struct* info, ErrorManager* errors, const unsigned char* bytes,
                std::size_t size, Header* header) {
  if (setjmp(errors->jump)) return false;
  jpeg_mem_src(info, bytes, static_cast<unsigned long>(size));
  jpeg_read_header(info, TRUE);
  header->width = info->image_width;
  header->height = info->image_height;
  header->components = info->num_components;
  return true;
}

// Decodes into rows of width * 3 bytes (RGB).
bool readRows(jpeg_decompress_struct* info, ErrorManager* errors, unsigned char* pixels) {
  if (setjmp(errors->jump)) return false;
  info->out_color_space = JCS_RGB;
  jpeg_start_decompress(info);
  if (info->output_components != 3) {
    std::snprintf(errors->message, sizeof errors->message, "unexpected colour layout");
    return false;
  }
  const std::size_t rowBytes = static_cast<std::size_t>(info->output_width) * 3;
  while (info->output_scanline < info->output_height) {
    JSAMPROW row = pixels + info->output_scanline * rowBytes;
    jpeg_read_scanlines(info, &row, 1);
  }
  jpeg_finish_decompress(info);
  return true;
}

class Decompressor {
 public:
  explicit Decompressor(ErrorManager* errors) {
    installErrorManager(errors);
    info_.err = &errors->base;
    created_ = create(&info_, errors);
  }
  ~Decompressor() {
    if (created_) jpeg_destroy_decompress(&info_);
  }
  jpeg_decompress_struct* info() { return &info_; }
  bool created() const { return created_; }

 private:
  static bool create(jpeg_decompress_struct* info, ErrorManager* errors) {
    if (setjmp(errors->jump)) return false;
    jpeg_create_decompress(info);
    return true;
  }
  jpeg_decompress_struct info_{};
  bool created_ = false;
};

[[noreturn]] void refuse(const char* name, const char* reason) {
  vemo::reportf(stderr, "Could not decode %s: %s\n", name, reason);
  throw EInvalidFileFormat();
}

}  // namespace

void decodeJPEG(const unsigned char* bytes, std::size_t size, const char* name, CTensor<float>& image,
                std::size_t maxPixels) {
  ErrorManager errors;
  Decompressor decompressor(&errors);
  if (!decompressor.created()) refuse(name, errors.message);
  Header header;
  if (!readHeader(decompressor.info(), &errors, bytes, size, &header)) refuse(name, errors.message);
  if (header.width == 0 || header.height == 0) refuse(name, "empty image");
  if (header.width > static_cast<JDIMENSION>(kMaxImageSide) ||
      header.height > static_cast<JDIMENSION>(kMaxImageSide) ||
      static_cast<std::size_t>(header.width) * header.height > maxPixels) {
    char reason[128];
    std::snprintf(reason, sizeof reason, "%u x %u pixels is more than accepted", header.width, header.height);
    refuse(name, reason);
  }
  if (header.components != 1 && header.components != 3) refuse(name, "only grey and colour JPEGs are read");

  std::vector<unsigned char> pixels(static_cast<std::size_t>(header.width) * header.height * 3);
  if (!readRows(decompressor.info(), &errors, pixels.data())) refuse(name, errors.message);
  if (errors.truncated) refuse(name, "file ends early");

  CTensor<float> decoded(static_cast<int>(header.width), static_cast<int>(header.height), 3);
  const std::size_t plane = decoded.planeSize();
  for (std::size_t i = 0; i < plane; ++i) {
    for (int c = 0; c < 3; ++c) decoded.data[c * plane + i] = pixels[i * 3 + c];
  }
  image = decoded;
}

namespace {

bool writeRows(jpeg_compress_struct* info, ErrorManager* errors, FILE* file, int width, int height,
               int components, int quality, unsigned char* pixels) {
  if (setjmp(errors->jump)) return false;
  jpeg_stdio_dest(info, file);
  info->image_width = static_cast<JDIMENSION>(width);
  info->image_height = static_cast<JDIMENSION>(height);
  info->input_components = components;
  info->in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(info);
  jpeg_set_quality(info, quality, TRUE);
  jpeg_start_compress(info, TRUE);
  const std::size_t rowBytes = static_cast<std::size_t>(width) * components;
  while (info->next_scanline < info->image_height) {
    JSAMPROW row = pixels + info->next_scanline * rowBytes;
    jpeg_write_scanlines(info, &row, 1);
  }
  jpeg_finish_compress(info);
  return true;
}

bool createCompressor(jpeg_compress_struct* info, ErrorManager* errors) {
  if (setjmp(errors->jump)) return false;
  jpeg_create_compress(info);
  return true;
}

}  // namespace

void writeJPEG(const CTensor<float>& image, const char* filename, int quality) {
  if ((image.zSize != 1 && image.zSize != 3) || image.elements() == 0 || quality < 1 || quality > 100) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: a JPEG needs a non-empty image of 1 or 3 planes and a "
                 "quality of 1 to 100 (got %d x %d x %d, quality %d)\n",
                 image.xSize, image.ySize, image.zSize, quality);
    throw ETensorIncompatibleSize();
  }
  const std::size_t plane = image.planeSize();
  std::vector<unsigned char> pixels(plane * image.zSize);
  for (std::size_t i = 0; i < plane; ++i) {
    for (int c = 0; c < image.zSize; ++c) {
      const float v = image.data[c * plane + i];
      pixels[i * image.zSize + c] =
          static_cast<unsigned char>(std::lround(std::isnan(v) ? 0.0f : std::fmin(255.0f, std::fmax(0.0f, v))));
    }
  }
  CAtomicFile output(filename);
  FILE* file = std::fopen(output.tempPath(), "wb");
  if (file == nullptr) {
    vemo::reportf(stderr, "Could not open %s\n", filename);
    throw EFileNotFound();
  }
  ErrorManager errors;
  installErrorManager(&errors);
  jpeg_compress_struct info{};
  info.err = &errors.base;
  bool written = false;
  if (createCompressor(&info, &errors)) {
    written = writeRows(&info, &errors, file, image.xSize, image.ySize, image.zSize, quality, pixels.data());
    jpeg_destroy_compress(&info);
  }
  const bool flushed = std::fflush(file) == 0 && std::ferror(file) == 0;
  const bool closed = std::fclose(file) == 0;
  if (!written || !flushed || !closed) {
    vemo::reportf(stderr, "Could not write %s: %s\n", filename, written ? "write error" : errors.message);
    throw EFileWriteFailed();
  }
  output.commit();
}

}  // namespace NImageIO
