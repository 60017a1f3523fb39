#include "arrays.h"

#include <cmath>
#include <cstdint>
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

// Copies element (y, x, c) of a strided H x W x C array (C = 1 for a 2-D
// array) into plane `plane` of `out`, converted by `value`.
template <typename T, typename Convert>
void copyPlanes(const AnyArray& a, CTensor<float>& out, int channels, Convert value) {
  const T* base = static_cast<const T*>(a.data());
  const int64_t sy = a.stride(0), sx = a.stride(1), sc = a.ndim() == 3 ? a.stride(2) : 0;
  const size_t plane = out.planeSize();
  for (int y = 0; y < out.ySize; ++y)
    for (int x = 0; x < out.xSize; ++x)
      for (int c = 0; c < out.zSize; ++c) {
        const int source = channels == 1 ? 0 : c;
        out.data[c * plane + static_cast<size_t>(y) * out.xSize + x] = value(base[y * sy + x * sx + source * sc]);
      }
}

bool hasDtype(const AnyArray& a, nb::dlpack::dtype_code code, int bits) {
  return a.dtype().code == static_cast<uint8_t>(code) && a.dtype().bits == bits && a.dtype().lanes == 1;
}

void checkFinite(const CTensor<float>& t, const char* what) {
  for (size_t i = 0; i < t.elements(); ++i)
    if (!std::isfinite(t.data[i])) throw nb::value_error((std::string(what) + " holds NaN or infinite values").c_str());
}

template <typename T>
nb::ndarray<nb::numpy, T> ownedArray(std::unique_ptr<T[]> values, std::initializer_list<size_t> shape) {
  T* data = values.release();
  nb::capsule owner(data, [](void* p) noexcept { delete[] static_cast<T*>(p); });
  return nb::ndarray<nb::numpy, T>(data, shape, owner);
}

}  // namespace

FrameShape checkFrameArray(const AnyArray& a, const char* what) {
  const bool u8 = hasDtype(a, nb::dlpack::dtype_code::UInt, 8);
  const bool u16 = hasDtype(a, nb::dlpack::dtype_code::UInt, 16);
  const bool f32 = hasDtype(a, nb::dlpack::dtype_code::Float, 32);
  if (!u8 && !u16 && !f32) {
    throw nb::type_error((std::string(what) + " has dtype " + dtypeName(a.dtype()) +
                          "; frames must be uint8, uint16 or float32").c_str());
  }
  if (!(a.ndim() == 2 || (a.ndim() == 3 && a.shape(2) == 3))) {
    throw nb::value_error((std::string(what) + " has shape " + shapeText(a) +
                           "; frames must be H x W x 3 (colour) or H x W (grey)").c_str());
  }
  const size_t height = a.shape(0), width = a.shape(1);
  const size_t side = static_cast<size_t>(NImageIO::kMaxImageSide);
  if (height < 2 || width < 2 || height > side || width > side || height * width > NImageIO::kMaxImagePixels) {
    throw nb::value_error((std::string(what) + " is " + std::to_string(width) + " x " + std::to_string(height) +
                           " pixels; frames need at least 2 x 2, sides up to " + std::to_string(side) +
                           " and at most " + std::to_string(NImageIO::kMaxImagePixels) + " pixels")
                              .c_str());
  }
  return FrameShape{static_cast<int>(width), static_cast<int>(height)};
}

CTensor<float> frameFromArray(const AnyArray& a, const char* what) {
  const FrameShape shape = checkFrameArray(a, what);
  const int channels = a.ndim() == 3 ? 3 : 1;
  CTensor<float> frame(shape.width, shape.height, 3);
  if (hasDtype(a, nb::dlpack::dtype_code::UInt, 8)) {
    copyPlanes<uint8_t>(a, frame, channels, [](uint8_t v) { return static_cast<float>(v); });
  } else if (hasDtype(a, nb::dlpack::dtype_code::UInt, 16)) {
    const float scale16 = 255.0f / 65535.0f;
    copyPlanes<uint16_t>(a, frame, channels, [scale16](uint16_t v) { return static_cast<float>(v) * scale16; });
  } else {
    copyPlanes<float>(a, frame, channels, [](float v) { return v; });
    checkFinite(frame, what);
  }
  return frame;
}

void checkSameSize(const FrameShape& frame1, const FrameShape& frame2) {
  if (frame1.width != frame2.width || frame1.height != frame2.height) {
    throw nb::value_error(("frames differ in size: frame1 is " + std::to_string(frame1.width) + " x " +
                           std::to_string(frame1.height) + ", frame2 is " + std::to_string(frame2.width) + " x " +
                           std::to_string(frame2.height))
                              .c_str());
  }
}

CTensor<float> flowFromArray(const AnyArray& a, const char* what) {
  if (!hasDtype(a, nb::dlpack::dtype_code::Float, 32)) {
    throw nb::type_error(
        (std::string(what) + " has dtype " + dtypeName(a.dtype()) + "; flow fields must be float32").c_str());
  }
  if (a.ndim() != 3 || a.shape(2) != 2 || a.shape(0) == 0 || a.shape(1) == 0) {
    throw nb::value_error(
        (std::string(what) + " has shape " + shapeText(a) + "; flow fields must be H x W x 2 (u, v)").c_str());
  }
  if (a.shape(0) > static_cast<size_t>(NImageIO::kMaxImageSide) ||
      a.shape(1) > static_cast<size_t>(NImageIO::kMaxImageSide)) {
    throw nb::value_error((std::string(what) + " is larger than the largest accepted frame").c_str());
  }
  CTensor<float> flow(static_cast<int>(a.shape(1)), static_cast<int>(a.shape(0)), 2);
  copyPlanes<float>(a, flow, 2, [](float v) { return v; });
  return flow;
}

nb::ndarray<nb::numpy, float> tensorToArray(const CTensor<float>& tensor) {
  const size_t h = tensor.ySize, w = tensor.xSize, c = tensor.zSize, plane = tensor.planeSize();
  std::unique_ptr<float[]> values(new float[plane * c]);
  for (size_t i = 0; i < plane; ++i)
    for (size_t z = 0; z < c; ++z) values[i * c + z] = tensor.data[z * plane + i];
  return ownedArray(std::move(values), {h, w, c});
}

nb::ndarray<nb::numpy, uint8_t> pictureToArray(const CTensor<float>& picture) {
  const size_t h = picture.ySize, w = picture.xSize, c = picture.zSize, plane = picture.planeSize();
  std::unique_ptr<uint8_t[]> values(new uint8_t[plane * c]);
  for (size_t i = 0; i < plane; ++i)
    for (size_t z = 0; z < c; ++z) {
      const float v = picture.data[z * plane + i];
      values[i * c + z] = static_cast<uint8_t>(v <= 0.0f ? 0.0f : (v >= 255.0f ? 255.0f : v));
    }
  return ownedArray(std::move(values), {h, w, c});
}

nb::ndarray<nb::numpy, bool> maskToArray(const CTensor<float>& mask) {
  const size_t h = mask.ySize, w = mask.xSize, plane = mask.planeSize();
  std::unique_ptr<bool[]> values(new bool[plane]);
  for (size_t i = 0; i < plane; ++i) values[i] = mask.data[i] != 0.0f;
  return ownedArray(std::move(values), {h, w});
}

}  // namespace vemopy
