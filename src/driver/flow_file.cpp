// Middlebury .flo files: a 12-byte header ("PIEH", width, height as
// little-endian int32) followed by interleaved little-endian float32 pairs
// (u, v) row by row. The tensor in memory is planar, so rows are converted
// through a small interleaved buffer.
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "common/diagnostics.h"
#include "driver/optic_flow.h"
#include "image/atomic_file.h"
#include "image/exceptions.h"

namespace {

const size_t kHeaderBytes = 12;
const size_t kVectorBytes = 8;  // u and v, float32 each

void putLE32(unsigned char* out, uint32_t value) {
  out[0] = static_cast<unsigned char>(value);
  out[1] = static_cast<unsigned char>(value >> 8);
  out[2] = static_cast<unsigned char>(value >> 16);
  out[3] = static_cast<unsigned char>(value >> 24);
}

uint32_t getLE32(const unsigned char* in) {
  return static_cast<uint32_t>(in[0]) | (static_cast<uint32_t>(in[1]) << 8) |
         (static_cast<uint32_t>(in[2]) << 16) | (static_cast<uint32_t>(in[3]) << 24);
}

void putFloat(unsigned char* out, float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, 4);
  putLE32(out, bits);
}

float getFloat(const unsigned char* in) {
  uint32_t bits = getLE32(in);
  float value;
  std::memcpy(&value, &bits, 4);
  return value;
}

int32_t getInt(const unsigned char* in) {
  uint32_t bits = getLE32(in);
  int32_t value;
  std::memcpy(&value, &bits, 4);
  return value;
}

struct FileCloser {
  void operator()(FILE* f) const {
    if (f != nullptr) std::fclose(f);
  }
};
using FileHandle = std::unique_ptr<FILE, FileCloser>;

bool hasFloExtension(const char* filename) {
  const char* dot = std::strrchr(filename, '.');
  return dot != nullptr && std::strcmp(dot, ".flo") == 0;
}

// Closes the stream, removes what was written (only if it is a regular file:
// a device such as /dev/full must survive), prints why and throws.
[[noreturn]] void abandonWrite(FileHandle& file, bool isRegular, const char* filename,
                               const char* shownName, int savedErrno) {
  std::fclose(file.release());
  if (isRegular) std::remove(filename);
  vemo::reportf(stderr, "Error writing flow file %s: %s; the incomplete file was removed\n",
               shownName, savedErrno != 0 ? std::strerror(savedErrno) : "short write");
  throw EFileWriteFailed();
}

[[noreturn]] void rejectFile(const char* filename, const char* what) {
  vemo::reportf(stderr, "Exception EInvalidFileFormat: flow file %s %s\n", filename, what);
  throw EInvalidFileFormat();
}

// Writes the file without the extension check; messages name shownName,
// the file the user asked for (filename may be a temporary file beside it).
void writeFlo(CTensor<float>& flow, const char* filename, const char* shownName) {
  const int width = flow.xSize;
  const int height = flow.ySize;
  const size_t pixels = flow.planeSize();
  if (width < 0 || height < 0 || (pixels > 0 && (flow.zSize < 2 || flow.data == nullptr))) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: a flow field needs two planes, got %d x %d x "
                 "%d\n",
                 width, height, flow.zSize);
    throw ETensorIncompatibleSize();
  }

  FileHandle file(std::fopen(filename, "wb"));
  if (!file) {
    vemo::reportf(stdout, "Could not open %s\n", shownName);
    std::fflush(stdout);
    throw EFileNotFound();
  }
  struct stat info;
  const bool isRegular = fstat(fileno(file.get()), &info) == 0 && S_ISREG(info.st_mode);

  unsigned char header[kHeaderBytes];
  std::memcpy(header, "PIEH", 4);
  putLE32(header + 4, static_cast<uint32_t>(width));
  putLE32(header + 8, static_cast<uint32_t>(height));
  errno = 0;
  if (std::fwrite(header, 1, kHeaderBytes, file.get()) != kHeaderBytes) {
    const int saved = errno;
    vemo::reportf(stdout, "Problem writing header\n");
    std::fflush(stdout);
    abandonWrite(file, isRegular, filename, shownName, saved);
  }

  const float* u = flow.data;
  const float* v = flow.data + pixels;
  // A zero-height field may still carry any width: size the row buffer only
  // when there are vectors to move.
  std::vector<unsigned char> row(pixels > 0 ? static_cast<size_t>(width) * kVectorBytes : 0);
  for (int y = 0; y < height && pixels > 0; ++y) {
    const size_t offset = static_cast<size_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      putFloat(&row[x * kVectorBytes], u[offset + x]);
      putFloat(&row[x * kVectorBytes + 4], v[offset + x]);
    }
    errno = 0;
    if (std::fwrite(row.data(), 1, row.size(), file.get()) != row.size())
      abandonWrite(file, isRegular, filename, shownName, errno);
  }

  // Buffered data reaches the disk only here; a full disk shows up now.
  errno = 0;
  if (std::fflush(file.get()) != 0 || std::ferror(file.get()))
    abandonWrite(file, isRegular, filename, shownName, errno);
  errno = 0;
  if (std::fclose(file.release()) != 0) {
    const int saved = errno;
    if (isRegular) std::remove(filename);
    vemo::reportf(stderr, "Error writing flow file %s: %s; the incomplete file was removed\n",
                 shownName, std::strerror(saved));
    throw EFileWriteFailed();
  }
}

}  // namespace

void COpticFlow::writeMiddlebury(CTensor<float>& flow, const char* filename) {
  if (!hasFloExtension(filename)) vemo::reportf(stdout, "%s should have extension '.flo'\n", filename);
  writeFlo(flow, filename, filename);
}

void COpticFlow::writeMiddleburyAtomically(CTensor<float>& flow, const std::string& filename) {
  CAtomicFile output(filename);
  writeFlo(flow, output.tempPath(), filename.c_str());
  output.commit();
}

void COpticFlow::readMiddlebury(const char* filename, CTensor<float>& flow) {
  FileHandle file(std::fopen(filename, "rb"));
  if (!file) {
    vemo::reportf(stdout, "Could not open %s\n", filename);
    std::fflush(stdout);
    throw EFileNotFound();
  }
  struct stat info;
  if (fstat(fileno(file.get()), &info) != 0 || !S_ISREG(info.st_mode))
    rejectFile(filename, "is not a regular file");
  const uint64_t length = static_cast<uint64_t>(info.st_size);
  if (length < kHeaderBytes) rejectFile(filename, "is too short to hold a header");

  unsigned char header[kHeaderBytes];
  if (std::fread(header, 1, kHeaderBytes, file.get()) != kHeaderBytes)
    rejectFile(filename, "could not be read");
  // The tag in header[0..3] is deliberately not compared.
  const int32_t width = getInt(header + 4);
  const int32_t height = getInt(header + 8);
  if (width < 0 || height < 0) {
    vemo::reportf(stderr, "Exception EInvalidFileFormat: flow file %s has negative size %d x %d\n",
                 filename, width, height);
    throw EInvalidFileFormat();
  }
  const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  const uint64_t available = (length - kHeaderBytes) / kVectorBytes;
  if (pixels > available) {
    vemo::reportf(stderr,
                 "Exception EInvalidFileFormat: flow file %s promises %d x %d vectors but holds "
                 "only %llu\n",
                 filename, width, height, static_cast<unsigned long long>(available));
    throw EInvalidFileFormat();
  }

  std::unique_ptr<float[]> data(pixels > 0 ? new float[2 * pixels] : nullptr);
  // A zero-height field may still carry any width: size the row buffer only
  // when there are vectors to move.
  std::vector<unsigned char> row(pixels > 0 ? static_cast<size_t>(width) * kVectorBytes : 0);
  for (int y = 0; y < height && pixels > 0; ++y) {
    if (std::fread(row.data(), 1, row.size(), file.get()) != row.size())
      rejectFile(filename, "ended before its last vector");
    const size_t offset = static_cast<size_t>(y) * width;
    for (int x = 0; x < width; ++x) {
      data[offset + x] = getFloat(&row[x * kVectorBytes]);
      data[pixels + offset + x] = getFloat(&row[x * kVectorBytes + 4]);
    }
  }

  delete[] flow.data;
  flow.data = data.release();
  flow.xSize = width;
  flow.ySize = height;
  flow.zSize = 2;
}
