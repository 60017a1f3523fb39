#include "api/frames.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "image/image_limits.h"
#include "vemo/errors.hpp"

namespace vemo::api {

namespace {

std::string sizeText(int width, int height) { return std::to_string(width) + " x " + std::to_string(height); }

// Copies sample (x, y, c) of the view into plane c of `out`, converted by
// `value`; a grey view fills all three planes.
template <typename T, typename Convert>
void copyPlanes(const ImageView& view, CTensor<float>& out, Convert value) {
  const unsigned char* rows = static_cast<const unsigned char*>(view.data);
  const std::ptrdiff_t rowBytes = view.row_bytes();
  const std::size_t plane = out.planeSize();
  for (int y = 0; y < view.height; ++y) {
    const unsigned char* line = rows + y * rowBytes;
    for (int x = 0; x < view.width; ++x)
      for (int c = 0; c < 3; ++c) {
        const int source = view.channels == 1 ? 0 : c;
        T sample;
        std::memcpy(&sample, line + (static_cast<std::size_t>(x) * view.channels + source) * sizeof(T), sizeof(T));
        out.data[c * plane + static_cast<std::size_t>(y) * view.width + x] = value(sample);
      }
  }
}

}  // namespace

void checkView(const ImageView& view, const char* what, int minSide) {
  const std::string name(what);
  if (view.type != PixelType::UInt8 && view.type != PixelType::UInt16 && view.type != PixelType::Float32)
    throw InvalidInput(name + " has an unknown pixel type; use UInt8, UInt16 or Float32");
  if (view.channels != 1 && view.channels != 3)
    throw InvalidInput(name + " has " + std::to_string(view.channels) +
                       " channels; frames need 1 (grey) or 3 (R, G, B)");
  const std::size_t side = static_cast<std::size_t>(NImageIO::kMaxImageSide);
  if (view.width < minSide || view.height < minSide || static_cast<std::size_t>(view.width) > side ||
      static_cast<std::size_t>(view.height) > side ||
      static_cast<std::size_t>(view.width) * static_cast<std::size_t>(view.height) > NImageIO::kMaxImagePixels)
    throw InvalidInput(name + " is " + sizeText(view.width, view.height) + " pixels; frames need at least " +
                       sizeText(minSide, minSide) + ", sides up to " + std::to_string(side) + " and at most " +
                       std::to_string(NImageIO::kMaxImagePixels) + " pixels");
  if (view.data == nullptr) throw InvalidInput(name + " has no pixels (a null data pointer)");
  const std::size_t sample = bytes_per_sample(view.type);
  const std::ptrdiff_t packed = static_cast<std::ptrdiff_t>(view.width) * view.channels * sample;
  if (view.stride != 0 && view.stride < packed)
    throw InvalidInput(name + " has a row stride of " + std::to_string(view.stride) + " bytes, less than its " +
                       std::to_string(packed) + "-byte rows");
  if (view.stride % static_cast<std::ptrdiff_t>(sample) != 0)
    throw InvalidInput(name + " has a row stride of " + std::to_string(view.stride) +
                       " bytes, not a whole number of " + std::to_string(sample) + "-byte samples");
}

CTensor<float> frameFromView(const ImageView& view, const char* what, int minSide) {
  checkView(view, what, minSide);
  CTensor<float> frame(view.width, view.height, 3);
  switch (view.type) {
    case PixelType::UInt8:
      copyPlanes<std::uint8_t>(view, frame, [](std::uint8_t v) { return static_cast<float>(v); });
      break;
    case PixelType::UInt16: {
      // As 16-bit PNG frames are read.
      const float scale16 = 255.0f / 65535.0f;
      copyPlanes<std::uint16_t>(view, frame, [scale16](std::uint16_t v) { return static_cast<float>(v) * scale16; });
      break;
    }
    case PixelType::Float32:
      copyPlanes<float>(view, frame, [](float v) { return v; });
      for (std::size_t i = 0; i < frame.elements(); ++i)
        if (!std::isfinite(frame.data[i])) throw InvalidInput(std::string(what) + " holds NaN or infinite values");
      break;
  }
  return frame;
}

CTensor<float> tensorFromFlow(const Flow& flow) {
  CTensor<float> t(flow.width(), flow.height(), 2);
  const std::size_t plane = t.planeSize();
  for (std::size_t i = 0; i < plane; ++i) {
    t.data[i] = flow.data()[2 * i];
    t.data[plane + i] = flow.data()[2 * i + 1];
  }
  return t;
}

Flow flowFromTensor(const CTensor<float>& tensor) {
  Flow flow(tensor.xSize, tensor.ySize);
  const std::size_t plane = tensor.planeSize();
  for (std::size_t i = 0; i < plane; ++i) {
    flow.data()[2 * i] = tensor.data[i];
    flow.data()[2 * i + 1] = tensor.data[plane + i];
  }
  return flow;
}

Image pictureFromTensor(const CTensor<float>& picture) {
  Image image(picture.xSize, picture.ySize, picture.zSize, PixelType::UInt8);
  std::uint8_t* out = static_cast<std::uint8_t*>(image.data());
  const std::size_t plane = picture.planeSize();
  const int channels = picture.zSize;
  for (std::size_t i = 0; i < plane; ++i)
    for (int c = 0; c < channels; ++c) {
      // Clamped and rounded, as the picture writers do.
      const float v = picture.data[c * plane + i];
      out[i * channels + c] = static_cast<std::uint8_t>(std::lround(std::isnan(v) ? 0.0f : std::fmin(255.0f, std::fmax(0.0f, v))));
    }
  return image;
}

}  // namespace vemo::api
