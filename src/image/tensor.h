// CTensor<T>: an owning width x height x channels array in planar layout.
// Element (x, y, z) is data[(z * ySize + y) * xSize + x]. A colour frame has
// three planes (R, G, B as floats 0..255); a flow field has two (u, v in
// pixels, positive to the right and downward).
#pragma once

#include <algorithm>
#include <cstddef>
#include <iostream>

#include "image/exceptions.h"
#include "image/matrix.h"

template <typename T>
class CTensor {
 public:
  CTensor() = default;
  CTensor(int xSize, int ySize, int zSize)
      : xSize(xSize), ySize(ySize), zSize(zSize), data(allocate(xSize, ySize, zSize)) {}
  CTensor(int xSize, int ySize, int zSize, const T& value) : CTensor(xSize, ySize, zSize) {
    std::fill(data, data + elements(), value);
  }
  CTensor(const CTensor& other) : CTensor(other.xSize, other.ySize, other.zSize) {
    std::copy(other.data, other.data + elements(), data);
  }
  CTensor& operator=(const CTensor& other) {
    if (this == &other) return *this;
    delete[] data;
    data = nullptr;
    xSize = ySize = zSize = 0;
    if (other.data == nullptr) return *this;
    xSize = other.xSize;
    ySize = other.ySize;
    zSize = other.zSize;
    data = allocate(xSize, ySize, zSize);
    std::copy(other.data, other.data + elements(), data);
    return *this;
  }
  virtual ~CTensor() { delete[] data; }

  T& operator()(int x, int y, int z) { return data[index(x, y, z)]; }
  const T& operator()(int x, int y, int z) const { return data[index(x, y, z)]; }
  size_t elements() const {
    if (xSize <= 0 || ySize <= 0 || zSize <= 0) return 0;
    return static_cast<size_t>(xSize) * static_cast<size_t>(ySize) * static_cast<size_t>(zSize);
  }
  size_t planeSize() const {
    return (xSize > 0 && ySize > 0) ? static_cast<size_t>(xSize) * static_cast<size_t>(ySize) : 0;
  }

  // Copies plane z into out, which must already have this tensor's width and
  // height; otherwise prints the size mismatch and throws.
  void getMatrix(CMatrix<T>& out, int z) const {
    if (out.xSize != xSize || out.ySize != ySize) {
      std::cerr << "Exception ETensorIncompatibleSize: x = " << out.xSize << ":" << xSize
                << ", y = " << out.ySize << ":" << ySize << std::endl;
      throw ETensorIncompatibleSize();
    }
    std::copy(data + z * planeSize(), data + (z + 1) * planeSize(), out.data);
  }

  // Replaces the contents with a binary PPM (P6) image; see ppm.cpp.
  void readFromPPM(const char* filename);

  // Host resampling of every plane (float only); see resample.cpp.
  void upsampleBilinear(int newWidth, int newHeight);
  void downsample(int newWidth, int newHeight);
  void downsample(int newWidth, int newHeight, CTensor<T>& weights);

  int xSize = 0;
  int ySize = 0;
  int zSize = 0;
  T* data = nullptr;

 private:
  size_t index(int x, int y, int z) const {
    return (static_cast<size_t>(z) * ySize + y) * xSize + x;
  }
  static T* allocate(int x, int y, int z) {
    if (x <= 0 || y <= 0 || z <= 0) return nullptr;
    return new T[static_cast<size_t>(x) * static_cast<size_t>(y) * static_cast<size_t>(z)];
  }
};
