// Host resampling of matrices and of every tensor plane: bilinear
// interpolation to any size, area averaging to a smaller size, and
// confidence-weighted bilinear splatting for sparse data such as match
// fields. All arithmetic is single precision except where marked.
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "image/matrix.h"
#include "image/tensor.h"

namespace {

[[noreturn]] void refuseSize(const std::string& message) {
  std::cerr << message << std::endl;
  throw std::invalid_argument(message);
}

void checkNewSize(const char* operation, int oldW, int oldH, int newW, int newH) {
  if (newW < 1 || newH < 1) {
    std::ostringstream s;
    s << operation << ": the new size " << newW << " x " << newH << " is not positive";
    refuseSize(s.str());
  }
  if (oldW < 1 || oldH < 1) {
    std::ostringstream s;
    s << operation << ": cannot resample an empty " << oldW << " x " << oldH << " image";
    refuseSize(s.str());
  }
}

// Source index, interpolation partner and weight of the partner for target
// sample `i` of a line resized by the factor `scale` (old / new length).
struct BilinearTap {
  int i0, i1;
  float f;
};

BilinearTap bilinearTap(int i, float scale, int oldLength) {
  const float p = static_cast<float>((i + 0.5) * static_cast<double>(scale) - 0.5);
  BilinearTap t;
  if (p < 0.0f) {
    t.i0 = 0;
    t.i1 = 1;
    t.f = 0.0f;
  } else {
    const int whole = static_cast<int>(p);
    t.i0 = whole;
    t.i1 = whole + 1;
    t.f = p - static_cast<float>(whole);
  }
  if (t.i1 > oldLength - 1) t.i1 = oldLength - 1;
  return t;
}

// Area pass along one line: n source samples with stride `srcStride` are
// summed into m <= n cells of width n / m with stride `dstStride`. A source
// sample straddling a cell boundary contributes the covered fraction of its
// value to each side. Boundaries are computed exactly in integers (positions
// scaled by m), so no rounding drift accumulates along the line.
void areaLine(const float* src, std::ptrdiff_t srcStride, int n, float* dst,
              std::ptrdiff_t dstStride, int m) {
  for (int j = 0; j < m; ++j) {
    const int64_t left = static_cast<int64_t>(j) * n;  // cell [left, right) in units of 1/m
    const int64_t right = left + n;
    float sum = 0.0f;
    for (int64_t i = left / m; i < n && i * m < right; ++i) {
      const int64_t lo = std::max<int64_t>(i * m, left);
      const int64_t hi = std::min<int64_t>((i + 1) * m, right);
      const float v = src[i * srcStride];
      if (hi - lo == m) {
        sum += v;
      } else {
        sum += static_cast<float>(static_cast<double>(hi - lo) / m) * v;
      }
    }
    dst[j * dstStride] = sum;
  }
}

}  // namespace

template <typename T>
void CMatrix<T>::upsampleBilinear(int newWidth, int newHeight) {
  checkNewSize("upsampleBilinear", xSize, ySize, newWidth, newHeight);
  const float sx = static_cast<float>(xSize) / static_cast<float>(newWidth);
  const float sy = static_cast<float>(ySize) / static_cast<float>(newHeight);
  CMatrix<T> result(newWidth, newHeight);
  std::vector<BilinearTap> columns(newWidth);
  for (int x = 0; x < newWidth; ++x) columns[x] = bilinearTap(x, sx, xSize);
#pragma omp parallel for schedule(static) if (result.elements() > 65536)
  for (int y = 0; y < newHeight; ++y) {
    const BilinearTap r = bilinearTap(y, sy, ySize);
    for (int x = 0; x < newWidth; ++x) {
      const BilinearTap& c = columns[x];
      const float top = (1.0f - c.f) * (*this)(c.i0, r.i0) + c.f * (*this)(c.i1, r.i0);
      const float bottom = (1.0f - c.f) * (*this)(c.i0, r.i1) + c.f * (*this)(c.i1, r.i1);
      result(x, y) = top * (1.0f - r.f) + bottom * r.f;
    }
  }
  *this = result;
}

template <typename T>
void CMatrix<T>::downsample(int newWidth, int newHeight) {
  checkNewSize("downsample", xSize, ySize, newWidth, newHeight);
  if (newWidth > xSize || newHeight > ySize) {
    std::ostringstream s;
    s << "downsample: cannot average " << xSize << " x " << ySize << " to the larger size "
      << newWidth << " x " << newHeight;
    refuseSize(s.str());
  }
  // Rows first (W x H -> w x H), then columns (w x H -> w x h); each pass
  // keeps sums, the final factor turns them into means.
  CMatrix<T> rows(newWidth, ySize);
#pragma omp parallel for schedule(static) if (elements() > 65536)
  for (int y = 0; y < ySize; ++y) {
    areaLine(data + static_cast<std::ptrdiff_t>(y) * xSize, 1, xSize,
             rows.data + static_cast<std::ptrdiff_t>(y) * newWidth, 1, newWidth);
  }
  CMatrix<T> result(newWidth, newHeight);
#pragma omp parallel for schedule(static) if (rows.elements() > 65536)
  for (int x = 0; x < newWidth; ++x) {
    areaLine(rows.data + x, newWidth, ySize, result.data + x, newWidth, newHeight);
  }
  const float toMean = static_cast<float>(static_cast<double>(newWidth) * newHeight /
                                          (static_cast<double>(xSize) * ySize));
  const size_t n = result.elements();
  for (size_t i = 0; i < n; ++i) result.data[i] *= toMean;
  *this = result;
}

template <typename T>
void CMatrix<T>::downsample(int newWidth, int newHeight, CMatrix<T>& weights) {
  checkNewSize("downsample", xSize, ySize, newWidth, newHeight);
  if (weights.xSize != xSize || weights.ySize != ySize) {
    std::ostringstream s;
    s << "downsample: weights of size " << weights.xSize << " x " << weights.ySize
      << " do not match the " << xSize << " x " << ySize << " image";
    refuseSize(s.str());
  }
  const float sx = static_cast<float>(newWidth) / static_cast<float>(xSize);
  const float sy = static_cast<float>(newHeight) / static_cast<float>(ySize);
  CMatrix<T> value(newWidth, newHeight, 0.0f);
  CMatrix<T> weight(newWidth, newHeight, 0.0f);
  // Serial: several source pixels splat into the same cells, and a fixed
  // order keeps the sums reproducible.
  for (int y = 0; y < ySize; ++y) {
    const float ty = static_cast<float>(y) * sy;
    const int iy = static_cast<int>(ty);
    const float fy = ty - static_cast<float>(iy);
    for (int x = 0; x < xSize; ++x) {
      const float g = weights(x, y);
      if (!(g > 0.0f)) continue;
      const float tx = static_cast<float>(x) * sx;
      const int ix = static_cast<int>(tx);
      const float fx = tx - static_cast<float>(ix);
      const float gv = g * (*this)(x, y);
      const int cx[4] = {ix, ix + 1, ix, ix + 1};
      const int cy[4] = {iy, iy, iy + 1, iy + 1};
      const float f[4] = {(1.0f - fx) * (1.0f - fy), fx * (1.0f - fy), (1.0f - fx) * fy, fx * fy};
      // Cells past the right or bottom edge of the target are left out.
      for (int c = 0; c < 4; ++c) {
        if (cx[c] >= newWidth || cy[c] >= newHeight) continue;
        value(cx[c], cy[c]) += f[c] * gv;
        weight(cx[c], cy[c]) += f[c] * g;
      }
    }
  }
  const size_t n = value.elements();
  for (size_t i = 0; i < n; ++i) {
    if (weight.data[i] > 0.0f) value.data[i] /= weight.data[i];
  }
  *this = value;
}

namespace {

// Applies `resample(matrix, z)` to every plane of `t` and replaces its array
// with one of newWidth x newHeight x zSize.
template <typename T, typename Resample>
void resamplePlanes(CTensor<T>& t, int newWidth, int newHeight, Resample resample) {
  checkNewSize("tensor resampling", t.xSize, t.ySize, newWidth, newHeight);
  CTensor<T> result(newWidth, newHeight, t.zSize);
  const size_t newPlane = result.planeSize();
  for (int z = 0; z < t.zSize; ++z) {
    CMatrix<T> plane(t.xSize, t.ySize);
    t.getMatrix(plane, z);
    resample(plane, z);
    std::copy(plane.data, plane.data + newPlane, result.data + z * newPlane);
  }
  t = result;
}

}  // namespace

template <typename T>
void CTensor<T>::upsampleBilinear(int newWidth, int newHeight) {
  resamplePlanes(*this, newWidth, newHeight,
                 [&](CMatrix<T>& m, int) { m.upsampleBilinear(newWidth, newHeight); });
}

template <typename T>
void CTensor<T>::downsample(int newWidth, int newHeight) {
  resamplePlanes(*this, newWidth, newHeight,
                 [&](CMatrix<T>& m, int) { m.downsample(newWidth, newHeight); });
}

// Plane z is weighted by plane z of `weights`, or by its only plane when it
// has one.
template <typename T>
void CTensor<T>::downsample(int newWidth, int newHeight, CTensor<T>& weights) {
  if (weights.xSize != xSize || weights.ySize != ySize ||
      (weights.zSize != zSize && weights.zSize != 1)) {
    std::ostringstream s;
    s << "downsample: weights of size " << weights.xSize << " x " << weights.ySize << " x "
      << weights.zSize << " do not match the " << xSize << " x " << ySize << " x " << zSize
      << " tensor";
    refuseSize(s.str());
  }
  CMatrix<T> g(xSize, ySize);
  resamplePlanes(*this, newWidth, newHeight, [&](CMatrix<T>& m, int z) {
    weights.getMatrix(g, weights.zSize == 1 ? 0 : z);
    m.downsample(newWidth, newHeight, g);
  });
}

template void CMatrix<float>::upsampleBilinear(int, int);
template void CMatrix<float>::downsample(int, int);
template void CMatrix<float>::downsample(int, int, CMatrix<float>&);
template void CTensor<float>::upsampleBilinear(int, int);
template void CTensor<float>::downsample(int, int);
template void CTensor<float>::downsample(int, int, CTensor<float>&);
