// CVector<T>: an owning one-dimensional array.
#pragma once

#include <algorithm>
#include <cstddef>

template <typename T>
class CVector {
 public:
  CVector() = default;
  explicit CVector(int size) : size(size), data(size > 0 ? new T[size] : nullptr) {}
  CVector(int size, const T& value) : CVector(size) { std::fill(data, data + elements(), value); }
  CVector(const CVector& other) : CVector(other.size) { std::copy(other.data, other.data + elements(), data); }
  CVector& operator=(const CVector& other) {
    if (this == &other) return *this;
    delete[] data;
    data = nullptr;
    size = 0;
    if (other.data == nullptr) return *this;
    size = other.size;
    data = new T[elements()];
    std::copy(other.data, other.data + elements(), data);
    return *this;
  }
  virtual ~CVector() { delete[] data; }

  T& operator()(int i) { return data[i]; }
  const T& operator()(int i) const { return data[i]; }
  size_t elements() const { return size > 0 ? static_cast<size_t>(size) : 0; }

  int size = 0;
  T* data = nullptr;
};
