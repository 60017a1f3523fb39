// vemo::Image, and frames and pictures in files.
#include <algorithm>
#include <cstdint>
#include <string>

#include "api/failures.h"
#include "api/frames.h"
#include "image/read_image.h"
#include "image/write_picture.h"
#include "vemo/errors.hpp"
#include "vemo/image.hpp"

namespace vemo {

std::size_t bytes_per_sample(PixelType type) {
  switch (type) {
    case PixelType::UInt8: return 1;
    case PixelType::UInt16: return 2;
    case PixelType::Float32: return 4;
  }
  return 0;
}

Image::Image(int width, int height, int channels, PixelType type)
    : width_(width), height_(height), channels_(channels), type_(type) {
  if (width < 0 || height < 0) throw InvalidInput("an image cannot have a negative size");
  if (channels != 1 && channels != 3) throw InvalidInput("images have 1 or 3 channels, not " + std::to_string(channels));
  if (bytes_per_sample(type) == 0) throw InvalidInput("unknown pixel type");
  bytes_.assign(static_cast<std::size_t>(width) * height * channels * bytes_per_sample(type), 0);
}

ImageView Image::view() const {
  ImageView v;
  v.data = bytes_.data();
  v.width = width_;
  v.height = height_;
  v.channels = channels_;
  v.type = type_;
  return v;
}

Image read_image(const std::string& path) {
  CTensor<float> frame;
  api::translated(api::FailureKind::Io, [&] { NImageIO::readImage(path, frame); });
  Image image(frame.xSize, frame.ySize, 3, PixelType::Float32);
  float* out = static_cast<float*>(image.data());
  const std::size_t plane = frame.planeSize();
  for (std::size_t i = 0; i < plane; ++i)
    for (int c = 0; c < 3; ++c) out[i * 3 + c] = frame.data[c * plane + i];
  return image;
}

void write_image(const std::string& path, const ImageView& image) {
  if (NImageIO::pictureFormatOf(path) == NImageIO::PictureFormat::Unknown)
    throw InvalidInput("cannot write " + path + ": name a picture .png, .jpg or .jpeg");
  // The writers clamp to 0..255 and round to whole samples.
  const CTensor<float> frame = api::frameFromView(image, "image", 1);
  CTensor<float> planes(image.width, image.height, image.channels);
  std::copy(frame.data, frame.data + planes.elements(), planes.data);
  api::translated(api::FailureKind::Io, [&] { NImageIO::writePicture(planes, path); });
}

}  // namespace vemo
