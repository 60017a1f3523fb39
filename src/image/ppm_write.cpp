// P6 writer: header "P6\n<w> <h>\n255\n", then interleaved RGB bytes row by
// row, converted from the planar tensor one row at a time.
#include "image/ppm_write.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "common/diagnostics.h"
#include "image/exceptions.h"
#include "image/write_error.h"

namespace {

unsigned char toByte(float value) {
  if (!(value > 0.0f)) return 0;  // also NaN
  if (value >= 255.0f) return 255;
  return static_cast<unsigned char>(std::lround(value));
}

[[noreturn]] void abandon(FILE* file, bool isRegular, const char* filename, int savedErrno) {
  if (file != nullptr) std::fclose(file);
  if (isRegular) std::remove(filename);
  vemo::reportf(stderr, "Error writing image %s: %s; the incomplete file was removed\n", filename,
               savedErrno != 0 ? std::strerror(savedErrno) : "short write");
  throw EFileWriteFailed();
}

}  // namespace

void NImageIO::writePPM(const CTensor<float>& image, const char* filename) {
  const int width = image.xSize;
  const int height = image.ySize;
  if (width <= 0 || height <= 0 || (image.zSize != 1 && image.zSize != 3) ||
      image.data == nullptr) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: cannot write a %d x %d x %d image as PPM; "
                 "it needs pixels and 1 or 3 planes\n",
                 width, height, image.zSize);
    throw ETensorIncompatibleSize();
  }
  FILE* file = std::fopen(filename, "wb");
  if (file == nullptr) {
    vemo::reportf(stderr, "Could not open %s\n", filename);
    throw EFileNotFound();
  }
  struct stat info;
  const bool isRegular = fstat(fileno(file), &info) == 0 && S_ISREG(info.st_mode);

  errno = 0;
  if (std::fprintf(file, "P6\n%d %d\n255\n", width, height) < 0)
    abandon(file, isRegular, filename, errno);

  const size_t plane = image.planeSize();
  const int greenPlane = image.zSize == 3 ? 1 : 0;
  const int bluePlane = image.zSize == 3 ? 2 : 0;
  std::vector<unsigned char> row(static_cast<size_t>(width) * 3);
  for (int y = 0; y < height; ++y) {
    const size_t offset = static_cast<size_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      row[3 * x] = toByte(image.data[offset + x]);
      row[3 * x + 1] = toByte(image.data[greenPlane * plane + offset + x]);
      row[3 * x + 2] = toByte(image.data[bluePlane * plane + offset + x]);
    }
    errno = 0;
    if (std::fwrite(row.data(), 1, row.size(), file) != row.size())
      abandon(file, isRegular, filename, errno);
  }
  errno = 0;
  if (std::fflush(file) != 0 || std::ferror(file)) abandon(file, isRegular, filename, errno);
  errno = 0;
  if (std::fclose(file) != 0) abandon(nullptr, isRegular, filename, errno);
}
