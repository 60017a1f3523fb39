// Running box filters along x or y whose window shrinks at the ends of a
// line. The running sum is single precision and never re-summed, so the
// result at a position depends on the order the line was traversed in; every
// line is traversed from its start, whatever the thread count.
#include <algorithm>
#include <cstddef>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "image/exceptions.h"
#include "image/filter.h"

namespace {

// Lines filtered side by side by one thread: neighbouring columns in the y
// direction, a transposed block of rows in the x direction.
constexpr int kChunk = 64;

// Data of shape [outer][length][inner]; lines run along `length`.
struct Shape {
  int outer, length, inner;
};

// Small images are filtered on the calling thread: a parallel region costs
// more than it saves below about 2^16 samples.
bool worthThreads(Shape shape) {
  return static_cast<long long>(shape.outer) * shape.length * shape.inner > 65536;
}

// 1 / n for n = 1 .. width (double, stored as float); entry 0 unused.
std::vector<float> reciprocals(int width) {
  std::vector<float> table(width + 1, 1.0f);
  for (int n = 1; n <= width; ++n) table[n] = static_cast<float>(1.0 / n);
  return table;
}

// Box filters the lines of columns [e0, e1) of block o.
void boxChunk(const float* src, float* dst, Shape shape, int o, int e0, int e1, int half,
              const std::vector<float>& table) {
  const std::ptrdiff_t inner = shape.inner;
  const int n = shape.length;
  const float* in = src + static_cast<std::ptrdiff_t>(o) * n * inner;
  float* out = dst + static_cast<std::ptrdiff_t>(o) * n * inner;
  float sum[kChunk];
  const int columns = e1 - e0;
  const int firstEnd = std::min(half, n - 1);
  for (int c = 0; c < columns; ++c) sum[c] = 0.0f;
  for (int i = 0; i <= firstEnd; ++i)
    for (int c = 0; c < columns; ++c) sum[c] += in[i * inner + e0 + c];
  int count = firstEnd + 1;
  for (int i = 0; i < n; ++i) {
    const float scale = table[count];
    for (int c = 0; c < columns; ++c) out[i * inner + e0 + c] = scale * sum[c];
    if (i - half >= 0) {
      for (int c = 0; c < columns; ++c) sum[c] -= in[(i - half) * inner + e0 + c];
      --count;
    }
    if (i + half + 1 < n) {
      for (int c = 0; c < columns; ++c) sum[c] += in[(i + half + 1) * inner + e0 + c];
      ++count;
    }
  }
}

void boxFilter(const float* src, float* dst, Shape shape, int size) {
  if (size < 0) {
    const std::string message = "boxFilter: negative window size " + std::to_string(size);
    std::cerr << message << std::endl;
    throw std::invalid_argument(message);
  }
  const int width = (size % 2 == 0) ? size + 1 : size;
  // A window wider than the line covers the whole line at every position:
  // capping the half-width at the line length changes no result and bounds
  // the reciprocal table by the line length.
  const int half = std::min(width >> 1, shape.length);
  const std::vector<float> table = reciprocals(std::min(width, shape.length));
  if (shape.inner == 1) {
    // Rows: kChunk rows at a time are copied into a transposed block and
    // filtered side by side like columns, then copied back.
    const int n = shape.length;
    const int blocks = (shape.outer + kChunk - 1) / kChunk;
#pragma omp parallel if (worthThreads(shape))
    {
      std::vector<float> in(static_cast<size_t>(n) * kChunk), out(in.size());
#pragma omp for schedule(static)
      for (int blk = 0; blk < blocks; ++blk) {
        const int first = blk * kChunk;
        const int rows = std::min(kChunk, shape.outer - first);
        const float* s = src + static_cast<std::ptrdiff_t>(first) * n;
        for (int r = 0; r < rows; ++r)
          for (int i = 0; i < n; ++i) in[static_cast<size_t>(i) * rows + r] = s[r * n + i];
        boxChunk(in.data(), out.data(), {1, n, rows}, 0, 0, rows, half, table);
        float* d = dst + static_cast<std::ptrdiff_t>(first) * n;
        for (int r = 0; r < rows; ++r)
          for (int i = 0; i < n; ++i) d[r * n + i] = out[static_cast<size_t>(i) * rows + r];
      }
    }
    return;
  }
  const int chunks = (shape.inner + kChunk - 1) / kChunk;
  const int items = shape.outer * chunks;
#pragma omp parallel for schedule(static) if (worthThreads(shape))
  for (int item = 0; item < items; ++item) {
    const int o = item / chunks;
    const int e0 = (item % chunks) * kChunk;
    const int e1 = std::min(e0 + kChunk, shape.inner);
    boxChunk(src, dst, shape, o, e0, e1, half, table);
  }
}

// Same size check and message as the mask filters; source and result may be
// the same object (the running sum reads samples behind the current one).
template <typename Container>
void boxAlong(const Container& source, Container& result, Shape shape, int size,
              bool sameSizes) {
  if (!sameSizes) {
    std::cerr << "Exception EFilterIncompatibleSize: Initial container size: "
              << source.elements() << "  Resulting container size: " << result.elements()
              << std::endl;
    throw EFilterIncompatibleSize();
  }
  if (source.data == nullptr) return;
  if (&source == &result) {
    std::vector<float> copy(source.data, source.data + source.elements());
    boxFilter(copy.data(), result.data, shape, size);
  } else {
    boxFilter(source.data, result.data, shape, size);
  }
}

bool same(const CTensor<float>& a, const CTensor<float>& b) {
  return a.xSize == b.xSize && a.ySize == b.ySize && a.zSize == b.zSize;
}

bool same(const CMatrix<float>& a, const CMatrix<float>& b) {
  return a.xSize == b.xSize && a.ySize == b.ySize;
}

}  // namespace

namespace NFilter {

void boxFilterX(const CTensor<float>& source, CTensor<float>& result, int size) {
  boxAlong(source, result, {source.zSize * source.ySize, source.xSize, 1}, size,
           same(source, result));
}

void boxFilterY(const CTensor<float>& source, CTensor<float>& result, int size) {
  boxAlong(source, result, {source.zSize, source.ySize, source.xSize}, size,
           same(source, result));
}

void boxFilterX(const CMatrix<float>& source, CMatrix<float>& result, int size) {
  boxAlong(source, result, {source.ySize, source.xSize, 1}, size, same(source, result));
}

void boxFilterY(const CMatrix<float>& source, CMatrix<float>& result, int size) {
  boxAlong(source, result, {1, source.ySize, source.xSize}, size, same(source, result));
}

}  // namespace NFilter
