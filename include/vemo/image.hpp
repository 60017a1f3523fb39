// Frames passed to the library: a non-owning view of pixels in the caller's
// memory, and an owning image for what the library reads or draws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vemo {

// The sample type of an image. The method works on the 0..255 scale: uint8
// and float32 samples are taken as they are, uint16 samples are scaled by
// 255/65535 (as 16-bit PNG frames are read).
enum class PixelType { UInt8, UInt16, Float32 };

// Bytes per sample of a pixel type.
std::size_t bytes_per_sample(PixelType type);

// Pixels in the caller's memory, row by row: `channels` interleaved samples
// per pixel (1: grey, 3: R, G, B), rows `stride` bytes apart (0: packed,
// width x channels samples). The memory must stay valid and unchanged while
// a call that takes the view runs; the library never writes through it.
struct ImageView {
  const void* data = nullptr;
  int width = 0;
  int height = 0;
  std::ptrdiff_t stride = 0;
  int channels = 3;
  PixelType type = PixelType::UInt8;

  ImageView() = default;
  ImageView(const std::uint8_t* pixels, int width, int height, int channels, std::ptrdiff_t stride = 0)
      : data(pixels), width(width), height(height), stride(stride), channels(channels), type(PixelType::UInt8) {}
  ImageView(const std::uint16_t* pixels, int width, int height, int channels, std::ptrdiff_t stride = 0)
      : data(pixels), width(width), height(height), stride(stride), channels(channels), type(PixelType::UInt16) {}
  ImageView(const float* pixels, int width, int height, int channels, std::ptrdiff_t stride = 0)
      : data(pixels), width(width), height(height), stride(stride), channels(channels), type(PixelType::Float32) {}

  // The distance between rows in bytes: stride, or the packed row length.
  std::ptrdiff_t row_bytes() const {
    return stride != 0 ? stride : static_cast<std::ptrdiff_t>(width) * channels * bytes_per_sample(type);
  }
};

// An image that owns its pixels, packed rows of interleaved samples.
class Image {
 public:
  Image() = default;
  // Zero-filled. InvalidInput for a negative size or channels other than 1
  // or 3.
  Image(int width, int height, int channels, PixelType type);

  int width() const { return width_; }
  int height() const { return height_; }
  int channels() const { return channels_; }
  PixelType type() const { return type_; }
  bool empty() const { return width_ == 0 || height_ == 0; }

  // The samples: width x height x channels of the pixel type.
  void* data() { return bytes_.data(); }
  const void* data() const { return bytes_.data(); }
  std::size_t size_bytes() const { return bytes_.size(); }

  ImageView view() const;

 private:
  int width_ = 0, height_ = 0, channels_ = 0;
  PixelType type_ = PixelType::UInt8;
  std::vector<unsigned char> bytes_;
};

// A frame from a PNG (8 or 16 bits, grey, colour, with or without alpha),
// JPEG or binary PGM/PPM file, told apart by its first bytes: float32 RGB on
// the 0..255 scale, exactly what the programs compute on (grey replicated,
// alpha dropped, 16-bit samples scaled by 255/65535). IoError when the file
// cannot be read or decoded.
Image read_image(const std::string& path);

// Writes a 1- or 3-channel image as PNG (8 bits) or JPEG (quality 95), as
// the name's extension (.png, .jpg, .jpeg) says; samples are clamped to
// 0..255 (uint16 ones scaled by 255/65535 first). The file appears complete
// or not at all. InvalidInput for another extension or a bad view; IoError
// when the file cannot be written.
void write_image(const std::string& path, const ImageView& image);

}  // namespace vemo
