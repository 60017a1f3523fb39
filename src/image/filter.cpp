// Mask correlation along one axis with the mirrored border.
//
// Every axis is handled as data of shape [outer][length][inner]: x is
// [rows of all planes][width][1], y is [planes][height][width] and z is
// [1][planes][width * height]. With inner == 1 each line is correlated on its
// own (left border, middle without mirroring, right border); with inner > 1
// whole rows or planes are accumulated at once, which reads memory in order.
// Both give every result the same sum, tap by tap in mask order from 0.
#include <cstddef>
#include <iostream>
#include <vector>

#include "image/exceptions.h"
#include "image/filter.h"
#include "image/mirror.h"

namespace {

struct Shape {
  int outer, length, inner;
};

// Below this many multiply-adds a parallel region costs more than it saves.
constexpr long long kSerialWork = 1 << 17;

void checkSameSize(size_t sourceElements, size_t resultElements, bool sameSizes) {
  if (sameSizes) return;
  std::cerr << "Exception EFilterIncompatibleSize: Initial container size: " << sourceElements
            << "  Resulting container size: " << resultElements << std::endl;
  throw EFilterIncompatibleSize();
}

// One contiguous line of length n (inner == 1): the middle positions, whose
// taps all lie inside the line, read it directly; the positions near either
// end go through the mirror.
void correlateLine(const float* src, float* dst, int n, const float* mask, int size, int offset) {
  auto clamp = [n](int v) { return v < 0 ? 0 : (v > n ? n : v); };
  const int middleBegin = clamp(offset);
  const int middleEnd = clamp(n - (size - 1 - offset));
  auto mirrored = [&](int x) {
    float sum = 0.0f;
    for (int k = 0; k < size; ++k) sum += mask[k] * src[NFilter::mirrorIndex(x + k - offset, n)];
    dst[x] = sum;
  };
  int x = 0;
  for (; x < middleBegin; ++x) mirrored(x);
  for (; x < middleEnd; ++x) {
    const float* s = src + (x - offset);
    float sum = 0.0f;
    for (int k = 0; k < size; ++k) sum += mask[k] * s[k];
    dst[x] = sum;
  }
  for (; x < n; ++x) mirrored(x);
}

void correlate(const float* src, float* dst, Shape shape, const CFilter<float>& mask) {
  const int size = mask.size;
  const int offset = mask.offset;
  const float* w = mask.data;
  const std::ptrdiff_t n = shape.length, inner = shape.inner;
  const long long work = static_cast<long long>(shape.outer) * n * inner * size;
  if (inner == 1) {
#pragma omp parallel for schedule(static) if (work > kSerialWork)
    for (int o = 0; o < shape.outer; ++o) {
      correlateLine(src + o * n, dst + o * n, shape.length, w, size, offset);
    }
    return;
  }
  const int blocks = shape.outer * shape.length;
#pragma omp parallel for schedule(static) if (work > kSerialWork)
  for (int b = 0; b < blocks; ++b) {
    const std::ptrdiff_t o = b / shape.length;
    const int i = b % shape.length;
    float* out = dst + b * inner;
    for (std::ptrdiff_t e = 0; e < inner; ++e) out[e] = 0.0f;
    for (int k = 0; k < size; ++k) {
      const int j = NFilter::mirrorIndex(i + k - offset, shape.length);
      const float* in = src + (o * n + j) * inner;
      const float m = w[k];
      for (std::ptrdiff_t e = 0; e < inner; ++e) out[e] += m * in[e];
    }
  }
}

// Correlates into a scratch array first when source and result are the same
// object, since a tap may read a sample that is already overwritten.
template <typename Container>
void filterAlong(const Container& source, Container& result, Shape shape,
                 const CFilter<float>& mask) {
  if (source.data == nullptr || mask.size <= 0) return;
  if (&source == &result) {
    std::vector<float> scratch(source.elements());
    correlate(source.data, scratch.data(), shape, mask);
    std::copy(scratch.begin(), scratch.end(), result.data);
  } else {
    correlate(source.data, result.data, shape, mask);
  }
}

void checkTensors(const CTensor<float>& s, const CTensor<float>& r) {
  checkSameSize(s.elements(), r.elements(),
                s.xSize == r.xSize && s.ySize == r.ySize && s.zSize == r.zSize);
}

void checkMatrices(const CMatrix<float>& s, const CMatrix<float>& r) {
  checkSameSize(s.elements(), r.elements(), s.xSize == r.xSize && s.ySize == r.ySize);
}

}  // namespace

namespace NFilter {

void filter(const CTensor<float>& source, CTensor<float>& result, const CFilter<float>& filterX,
            int, int) {
  checkTensors(source, result);
  filterAlong(source, result, {source.zSize * source.ySize, source.xSize, 1}, filterX);
}

void filter(const CTensor<float>& source, CTensor<float>& result, int,
            const CFilter<float>& filterY, int) {
  checkTensors(source, result);
  filterAlong(source, result, {source.zSize, source.ySize, source.xSize}, filterY);
}

void filter(const CTensor<float>& source, CTensor<float>& result, int, int,
            const CFilter<float>& filterZ) {
  checkTensors(source, result);
  filterAlong(source, result, {1, source.zSize, source.xSize * source.ySize}, filterZ);
}

void filter(const CMatrix<float>& source, CMatrix<float>& result, const CFilter<float>& filterX,
            int) {
  checkMatrices(source, result);
  filterAlong(source, result, {source.ySize, source.xSize, 1}, filterX);
}

void filter(const CMatrix<float>& source, CMatrix<float>& result, int,
            const CFilter<float>& filterY) {
  checkMatrices(source, result);
  filterAlong(source, result, {1, source.ySize, source.xSize}, filterY);
}

}  // namespace NFilter
