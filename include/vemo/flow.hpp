// A dense flow field and its file format.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vemo {

// A flow field that owns its vectors: width x height pixels, each (u, v) in
// pixels from frame 1 to frame 2, interleaved row by row (the layout of a
// .flo file and of OpenCV's CV_32FC2). Components of 1e9 or more, and
// non-finite ones, mean "unknown" in ground-truth files.
class Flow {
 public:
  Flow() = default;
  // Zero vectors. InvalidInput for a negative size.
  Flow(int width, int height);

  int width() const { return width_; }
  int height() const { return height_; }
  bool empty() const { return width_ == 0 || height_ == 0; }

  // 2 x width x height floats: u(0,0), v(0,0), u(1,0), ...
  float* data() { return values_.data(); }
  const float* data() const { return values_.data(); }
  std::size_t size() const { return values_.size(); }

  float& u(int x, int y) { return values_[index(x, y)]; }
  float& v(int x, int y) { return values_[index(x, y) + 1]; }
  float u(int x, int y) const { return values_[index(x, y)]; }
  float v(int x, int y) const { return values_[index(x, y) + 1]; }

 private:
  std::size_t index(int x, int y) const {
    return 2 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x));
  }
  int width_ = 0, height_ = 0;
  std::vector<float> values_;
};

// Reads a Middlebury .flo file (tag "PIEH", int32 width and height, then the
// float pairs, little-endian). IoError when the file cannot be opened, is
// not a flow file, or holds fewer vectors than its header promises.
Flow read_flo(const std::string& path);

// Writes a .flo file that any Middlebury reader (and OpenCV's
// readOpticalFlow) reads back bit for bit. The file appears complete or not
// at all. IoError when it cannot be written.
void write_flo(const std::string& path, const Flow& flow);

}  // namespace vemo
