#include "arrays.h"

#include <cstring>
#include <memory>
#include <string>

#include "image/image_limits.h"

namespace vemopy {

namespace {

std::string dtypeName(const nb::dlpack::dtype& t) {
  const char* kind = "unknown";
  switch (static_cast<nb::dlpack::dtype_code>(t.code)) {
    case nb::dlpack::dtype_code::Int: kind = "int"; break;
    case nb::dlpack::dtype_code::UInt: kind = "uint"; break;
    case nb::dlpack::dtype_code::Float: kind = "float"; break;
    case nb::dlpack::dtype_code::Bfloat: kind = "bfloat"; break;
    case nb::dlpack::dtype_code::Complex: kind = "complex"; break;
    case nb::dlpack::dtype_code::Bool: return "bool";
    default: break;
  }
  return kind + std::to_string(t.bits);
}

std::string shapeText(const AnyArray& a) {
  std::string text = "(";
  for (size_t i = 0; i < a.ndim(); ++i) text += (i ? ", " : "") + std::to_string(a.shape(i));
  return text + (a.ndim() == 1 ? ",)" : ")");
}

bool hasDtype(const AnyArray& a, nb::dlpack::dtype_code code, int bits) {
  return a.dtype().code == static_cast<uint8_t>(code) && a.dtype().bits == bits && a.dtype().lanes == 1;
}

// Copies the elements of a strided H x W x C array (C = 1 for 2-D) into
// packed rows of interleaved samples.
template <typename T>
void packInto(const AnyArray& a, int channels, std::vector<unsigned char>& out) {
  const T* base = static_cast<const T*>(a.data());
  const int64_t sy = a.stride(0), sx = a.stride(1), sc = a.ndim() == 3 ? a.stride(2) : 0;
  const size_t h = a.shape(0), w = a.shape(1);
  out.resize(h * w * channels * sizeof(T));
  T* dst = reinterpret_cast<T*>(out.data());
  for (size_t y = 0; y < h; ++y)
    for (size_t x = 0; x < w; ++x)
      for (int c = 0; c < channels; ++c) *dst++ = base[y * sy + x * sx + c * sc];
}

template <typename T>
nb::ndarray<nb::numpy, T> ownedArray(std::unique_ptr<T[]> values, std::initializer_list<size_t> shape) {
  T* data = values.release();
  nb::capsule owner(data, [](void* p) noexcept { delete[] static_cast<T*>(p); });
  return nb::ndarray<nb::numpy, T>(data, shape, owner);
}

}  // namespace

void viewFrame(const AnyArray& a, const char* what, FrameArray& out) {
  vemo::PixelType type;
  if (hasDtype(a, nb::dlpack::dtype_code::UInt, 8)) {
    type = vemo::PixelType::UInt8;
  } else if (hasDtype(a, nb::dlpack::dtype_code::UInt, 16)) {
    type = vemo::PixelType::UInt16;
  } else if (hasDtype(a, nb::dlpack::dtype_code::Float, 32)) {
    type = vemo::PixelType::Float32;
  } else {
    throw nb::type_error((std::string(what) + " has dtype " + dtypeName(a.dtype()) +
                          "; frames must be uint8, uint16 or float32").c_str());
  }
  if (!(a.ndim() == 2 || (a.ndim() == 3 && a.shape(2) == 3))) {
    throw nb::value_error((std::string(what) + " has shape " + shapeText(a) +
                           "; frames must be H x W x 3 (colour) or H x W (grey)").c_str());
  }
  const int channels = a.ndim() == 3 ? 3 : 1;
  const size_t sample = vemo::bytes_per_sample(type);
  // Sizes beyond int are left to the library's size check through a
  // clamped value rather than a wrapped one.
  auto side = [](size_t n) { return n > 1000000000u ? 1000000000 : static_cast<int>(n); };
  const int width = side(a.shape(1)), height = side(a.shape(0));
  const bool packedPixels = (a.ndim() == 2 || a.stride(2) == 1) && (width < 2 || a.stride(1) == channels);
  const bool rowsForward = height < 2 || a.stride(0) >= static_cast<int64_t>(width) * channels;
  const void* data = a.data();
  std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(a.stride(0)) * static_cast<std::ptrdiff_t>(sample);
  if (!(packedPixels && rowsForward)) {
    if (type == vemo::PixelType::UInt8) packInto<uint8_t>(a, channels, out.copy);
    else if (type == vemo::PixelType::UInt16) packInto<uint16_t>(a, channels, out.copy);
    else packInto<float>(a, channels, out.copy);
    data = out.copy.data();
    stride = 0;
  }
  if (height < 2) stride = 0;
  out.view.data = data;
  out.view.width = width;
  out.view.height = height;
  out.view.stride = stride;
  out.view.channels = channels;
  out.view.type = type;
}

vemo::Flow flowFromArray(const AnyArray& a, const char* what) {
  if (!hasDtype(a, nb::dlpack::dtype_code::Float, 32)) {
    throw nb::type_error(
        (std::string(what) + " has dtype " + dtypeName(a.dtype()) + "; flow fields must be float32").c_str());
  }
  if (a.ndim() != 3 || a.shape(2) != 2 || a.shape(0) == 0 || a.shape(1) == 0) {
    throw nb::value_error(
        (std::string(what) + " has shape " + shapeText(a) + "; flow fields must be H x W x 2 (u, v)").c_str());
  }
  // Before anything is allocated for it.
  if (a.shape(0) > 65535 || a.shape(1) > 65535 || a.shape(0) * a.shape(1) > NImageIO::kMaxImagePixels) {
    throw nb::value_error((std::string(what) + " is " + std::to_string(a.shape(1)) + " x " +
                           std::to_string(a.shape(0)) + " vectors, larger than the largest accepted frame (" +
                           std::to_string(NImageIO::kMaxImagePixels) + " pixels)").c_str());
  }
  vemo::Flow flow(static_cast<int>(a.shape(1)), static_cast<int>(a.shape(0)));
  const float* base = static_cast<const float*>(a.data());
  const int64_t sy = a.stride(0), sx = a.stride(1), sc = a.stride(2);
  float* dst = flow.data();
  for (int y = 0; y < flow.height(); ++y)
    for (int x = 0; x < flow.width(); ++x)
      for (int c = 0; c < 2; ++c) *dst++ = base[y * sy + x * sx + c * sc];
  return flow;
}

nb::ndarray<nb::numpy, float> flowToArray(const vemo::Flow& flow) {
  std::unique_ptr<float[]> values(new float[flow.size()]);
  std::memcpy(values.get(), flow.data(), flow.size() * sizeof(float));
  return ownedArray(std::move(values), {size_t(flow.height()), size_t(flow.width()), 2});
}

nb::object imageToArray(const vemo::Image& image) {
  const size_t h = image.height(), w = image.width(), c = image.channels();
  if (image.type() == vemo::PixelType::Float32) {
    std::unique_ptr<float[]> values(new float[h * w * c]);
    std::memcpy(values.get(), image.data(), image.size_bytes());
    return nb::cast(ownedArray(std::move(values), {h, w, c}));
  }
  std::unique_ptr<uint8_t[]> values(new uint8_t[h * w * c]);
  std::memcpy(values.get(), image.data(), image.size_bytes());
  return nb::cast(ownedArray(std::move(values), {h, w, c}));
}

nb::ndarray<nb::numpy, bool> maskToArray(const std::vector<std::uint8_t>& mask, int width, int height) {
  std::unique_ptr<bool[]> values(new bool[mask.size()]);
  for (size_t i = 0; i < mask.size(); ++i) values[i] = mask[i] != 0;
  return ownedArray(std::move(values), {size_t(height), size_t(width)});
}

nb::ndarray<nb::numpy, float> tensorToArray(const CTensor<float>& tensor) {
  const size_t h = tensor.ySize, w = tensor.xSize, c = tensor.zSize, plane = tensor.planeSize();
  std::unique_ptr<float[]> values(new float[plane * c]);
  for (size_t i = 0; i < plane; ++i)
    for (size_t z = 0; z < c; ++z) values[i * c + z] = tensor.data[z * plane + i];
  return ownedArray(std::move(values), {h, w, c});
}

}  // namespace vemopy
