// CMatrix<T>: an owning two-dimensional array, element (x, y) at
// data[y * xSize + x].
#pragma once

#include <algorithm>
#include <cstddef>

template <typename T>
class CMatrix {
 public:
  CMatrix() = default;
  CMatrix(int xSize, int ySize) : xSize(xSize), ySize(ySize), data(allocate(xSize, ySize)) {}
  CMatrix(int xSize, int ySize, const T& value) : CMatrix(xSize, ySize) {
    std::fill(data, data + elements(), value);
  }
  CMatrix(const CMatrix& other) : CMatrix(other.xSize, other.ySize) {
    std::copy(other.data, other.data + elements(), data);
  }
  CMatrix& operator=(const CMatrix& other) {
    if (this == &other) return *this;
    delete[] data;
    data = nullptr;
    xSize = ySize = 0;
    if (other.data == nullptr) return *this;
    xSize = other.xSize;
    ySize = other.ySize;
    data = allocate(xSize, ySize);
    std::copy(other.data, other.data + elements(), data);
    return *this;
  }
  virtual ~CMatrix() { delete[] data; }

  T& operator()(int x, int y) { return data[static_cast<size_t>(y) * xSize + x]; }
  const T& operator()(int x, int y) const { return data[static_cast<size_t>(y) * xSize + x]; }
  size_t elements() const {
    return (xSize > 0 && ySize > 0) ? static_cast<size_t>(xSize) * static_cast<size_t>(ySize) : 0;
  }

  // Host resampling (float only); see resample.cpp.
  void upsampleBilinear(int newWidth, int newHeight);
  void downsample(int newWidth, int newHeight);
  void downsample(int newWidth, int newHeight, CMatrix<T>& weights);

  int xSize = 0;
  int ySize = 0;
  T* data = nullptr;

 private:
  static T* allocate(int x, int y) {
    if (x <= 0 || y <= 0) return nullptr;
    return new T[static_cast<size_t>(x) * static_cast<size_t>(y)];
  }
};
