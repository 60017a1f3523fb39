#include "backends/cpu/cpu_backend.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "backends/cpu/convolve.h"
#include "backends/cpu/elementwise.h"
#include "backends/cpu/motion_tensor.h"
#include "backends/cpu/resample.h"
#include "backends/cpu/row_parallel.h"
#include "backends/cpu/warp.h"
#include "common/diagnostics.h"

namespace vemo {

namespace {

// MemAvailable: what the kernel can hand out without swapping.
std::size_t systemAvailableBytes() {
  if (FILE* f = std::fopen("/proc/meminfo", "r")) {
    char line[256];
    unsigned long long kib = 0;
    while (std::fgets(line, sizeof line, f) != nullptr)
      if (std::sscanf(line, "MemAvailable: %llu kB", &kib) == 1) break;
    std::fclose(f);
    if (kib > 0) return static_cast<std::size_t>(kib) * 1024;
  }
  const long pages = sysconf(_SC_AVPHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  if (pages > 0 && pageSize > 0) return static_cast<std::size_t>(pages) * static_cast<std::size_t>(pageSize);
  return static_cast<std::size_t>(-1);
}

// What the process may still map under its own limits (RLIMIT_AS on its
// address space, RLIMIT_DATA on its data), which the system's free memory
// does not show: the room between each limit and the current use.
std::size_t processLimitHeadroom() {
  unsigned long long pages[7] = {};
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    // size resident shared text lib data dt
    if (std::fscanf(f, "%llu %llu %llu %llu %llu %llu", &pages[0], &pages[1], &pages[2], &pages[3], &pages[4],
                    &pages[5]) != 6)
      pages[0] = pages[5] = 0;
    std::fclose(f);
  }
  const std::size_t pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::size_t headroom = static_cast<std::size_t>(-1);
  const std::pair<int, unsigned long long> limits[] = {{RLIMIT_AS, pages[0]}, {RLIMIT_DATA, pages[5]}};
  for (const auto& [resource, usedPages] : limits) {
    rlimit limit;
    if (getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) continue;
    const std::size_t used = static_cast<std::size_t>(usedPages) * pageSize;
    const std::size_t cap = static_cast<std::size_t>(limit.rlim_cur);
    headroom = std::min(headroom, cap > used ? cap - used : 0);
  }
  return headroom;
}

constexpr std::size_t kAlignmentBytes = 64;
// Buffers start at one of kSkewBytes / kAlignmentBytes offsets, kSkewStepBytes
// apart from one allocation to the next (an odd number of alignment units,
// so every offset comes round before any repeats).
// Only blocks of at least kSkewedBlock bytes are shifted: smaller ones stay
// in cache, and the room for the shift would be a noticeable share of them.
constexpr std::size_t kSkewBytes = 4096;
constexpr std::size_t kSkewStepBytes = 7 * kAlignmentBytes;
constexpr std::size_t kSkewedBlock = 64 * 1024;

std::size_t skewRoom(std::size_t bytes) { return bytes >= kSkewedBlock ? kSkewBytes : 0; }

[[noreturn]] void fail(const std::string& message) {
  vemo::reportf(stderr, "%s\n", message.c_str());
  throw BackendError(message);
}
}  // namespace

CpuBackend::CpuBackend(int pitchAlignment, int extraPitch)
    : pitchAlignment_(pitchAlignment), extraPitch_(extraPitch) {
  if (pitchAlignment < 1 || extraPitch < 0)
    fail("CpuBackend: invalid pitch alignment " + std::to_string(pitchAlignment) + " or extra pitch " +
         std::to_string(extraPitch));
}

CpuBackend::~CpuBackend() {
  for (auto& entry : cache_) std::free(entry.second);
}

Buffer CpuBackend::allocate(std::size_t floats) {
  // Round up to whole alignment units; never zero bytes. One extra unit in
  // front holds the size and the skew, so that release() can account for
  // the block; large blocks get room for the skew.
  if (floats > (static_cast<std::size_t>(-1) / 2) / sizeof(float)) fail("CpuBackend: allocation size overflows");
  const std::size_t bytes = ((floats * sizeof(float) + kAlignmentBytes - 1) / kAlignmentBytes + 1) * kAlignmentBytes;
  const std::size_t block = bytes + kAlignmentBytes + skewRoom(bytes);
  void* p = nullptr;
  auto cached = cache_.find(bytes);
  if (cached != cache_.end()) {
    p = cached->second;
    cache_.erase(cached);
    cachedBytes_ -= block;
  } else {
    p = std::aligned_alloc(kAlignmentBytes, block);
    if (p == nullptr) {
      const std::string message = "CpuBackend: out of memory allocating " + std::to_string(bytes) + " bytes";
      vemo::reportf(stderr, "%s\n", message.c_str());
      throw BackendOutOfMemory(message);
    }
  }
  // Large blocks all start at the same offset within a page, and so would
  // the same pixel of every image: streaming through many images at once
  // then maps them onto the same cache sets and makes loads wait on
  // unrelated stores to the same page offset. Successive buffers are
  // therefore shifted by different multiples of the alignment.
  const std::size_t skew = skewRoom(bytes) > 0 ? (skewCounter_++ * kSkewStepBytes) % kSkewBytes : 0;
  char* header = static_cast<char*>(p) + skew;
  reinterpret_cast<std::size_t*>(header)[0] = bytes;
  reinterpret_cast<std::size_t*>(header)[1] = skew;
  float* data = reinterpret_cast<float*>(header + kAlignmentBytes);
  // Zero-filled, fresh or reused, so that no run ever depends on leftover
  // memory.
  std::memset(data, 0, bytes);
  noteAllocated(block);
  return Buffer(this, data, floats);
}

void CpuBackend::release(float* data) noexcept {
  char* header = reinterpret_cast<char*>(data) - kAlignmentBytes;
  const std::size_t bytes = reinterpret_cast<std::size_t*>(header)[0];
  char* base = header - reinterpret_cast<std::size_t*>(header)[1];
  const std::size_t block = bytes + kAlignmentBytes + skewRoom(bytes);
  noteReleased(block);
  if (cachedBytes_ + block <= peakBytes()) {
    try {
      cache_.emplace(bytes, base);
      cachedBytes_ += block;
      return;
    } catch (...) {
      // No room to remember the block: give it back instead.
    }
  }
  std::free(base);
}

std::size_t CpuBackend::availableBytes() const {
  // Blocks this backend keeps for reuse are available to it as well.
  const std::size_t free = std::min(systemAvailableBytes(), processLimitHeadroom());
  return free == static_cast<std::size_t>(-1) ? free : free + cachedBytes_;
}

int CpuBackend::pitchFor(int width) const {
  if (width < 1) fail("CpuBackend: invalid image width " + std::to_string(width));
  const long aligned = (static_cast<long>(width) + pitchAlignment_ - 1) / pitchAlignment_ * pitchAlignment_;
  const long pitch = aligned + extraPitch_;
  if (pitch > 0x7fffffffL) fail("CpuBackend: image width " + std::to_string(width) + " too large");
  return static_cast<int>(pitch);
}

void CpuBackend::upload(float* dst, int dstPitch, const float* src, int width, int rows) {
  cpu::parallelRows(rows, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y)
      std::memcpy(dst + static_cast<std::size_t>(y) * dstPitch, src + static_cast<std::size_t>(y) * width,
                  width * sizeof(float));
  });
}

void CpuBackend::download(float* dst, const float* src, int srcPitch, int width, int rows) {
  cpu::parallelRows(rows, width, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y)
      std::memcpy(dst + static_cast<std::size_t>(y) * width, src + static_cast<std::size_t>(y) * srcPitch,
                  width * sizeof(float));
  });
}

void CpuBackend::copy(float* dst, const float* src, std::size_t floats) {
  if (floats > 0) std::memmove(dst, src, floats * sizeof(float));
}

void CpuBackend::clear(float* dst, std::size_t floats) {
  if (floats > 0) std::memset(dst, 0, floats * sizeof(float));
}

void CpuBackend::scale(float* arr, int height, int width, int pitch, float scale) {
  cpu::Scale(arr, height, width, pitch, scale);
}

void CpuBackend::setValue(float* a, int height, int width, int pitch, float val) {
  cpu::setValue(a, height, width, pitch, val);
}

void CpuBackend::add(float* acc, const float* b, int height, int width, int pitch) {
  cpu::Add(acc, b, height, width, pitch);
}

void CpuBackend::convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                           int length) {
  cpu::gConvolveX(out, in, height, width, pitch, mask, length);
}

void CpuBackend::convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                           int length) {
  cpu::gConvolveY(out, in, height, width, pitch, mask, length);
}

void CpuBackend::downsample(const float* arr, int height, int width, int pitch, float* out, int newheight,
                            int newwidth, int newpitch, const float* conf) {
  cpu::downsample(arr, height, width, pitch, out, newheight, newwidth, newpitch, conf);
}

// Channels three at a time: one pass shares the footprints' weights and
// loops among the three planes.
void CpuBackend::downsampleChannels(const float* in, std::size_t inPlane, float* out, std::size_t outPlane,
                                    int nChan, int height, int width, int pitch, int newheight, int newwidth,
                                    int newpitch) {
  int c = 0;
  for (; c + 3 <= nChan; c += 3) {
    const float* const from[3] = {in + c * inPlane, in + (c + 1) * inPlane, in + (c + 2) * inPlane};
    float* const to[3] = {out + c * outPlane, out + (c + 1) * outPlane, out + (c + 2) * outPlane};
    cpu::downsample3(from, to, height, width, pitch, newheight, newwidth, newpitch, nullptr);
  }
  for (; c < nChan; ++c)
    cpu::downsample(in + c * inPlane, height, width, pitch, out + c * outPlane, newheight, newwidth, newpitch,
                    nullptr);
}

void CpuBackend::downsampleMatches(const float* const in[3], float* const out[3], int height, int width, int pitch,
                                   int newheight, int newwidth, int newpitch) {
  cpu::downsample3(in, out, height, width, pitch, newheight, newwidth, newpitch, in[2]);
}

void CpuBackend::interpolate(float* out, int oheight, int owidth, int opitch, const float* src, int height,
                             int width, int pitch, float scaleFactor) {
  cpu::gInterpolate(out, oheight, owidth, opitch, src, height, width, pitch, scaleFactor);
}

void CpuBackend::warpMotion(float* out, const float* u, const float* v, const float* src, const float* first,
                            int nChan, float* confidence, int height, int width, int pitch) {
  cpu::gWarpMotion(out, u, v, src, first, nChan, confidence, height, width, pitch);
}

void CpuBackend::diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
  cpu::Diff(c, a, b, height, width, pitch);
}

void CpuBackend::brightnessTensor(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* conf,
                                  int height, int width, int pitch) {
  cpu::makeST(ST, Ix, Iy, Iz, conf, height, width, pitch);
}

// Row by row, without the derivative planes: the tensors' inputs are formed
// a few rows at a time where they are used.
void CpuBackend::motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
                               float*, int height, int width, int pitch, int nChan, const float* mask) {
  cpu::motionTensors(frame1, warped, ST, ST2, conf, height, width, pitch, nChan, mask, 5);
}

void CpuBackend::gradientTensor(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                                const float* Iyz, const float* conf, int height, int width, int pitch) {
  cpu::makeST2(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch);
}

}  // namespace vemo
