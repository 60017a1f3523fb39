// Optional bridge to OpenCV, header-only: include it after OpenCV's core
// header in code that already uses OpenCV; the vemo library itself never
// links OpenCV.
//
//   cv::Mat bgr = cv::imread("frame1.png"), rgb;
//   cv::cvtColor(bgr, rgb, cv::COLOR_BGR2RGB);   // vemo takes R, G, B
//   vemo::Flow flow = engine.flow(vemo::opencv::view(rgb1), vemo::opencv::view(rgb2));
//   cv::Mat uv = vemo::opencv::to_mat(flow);      // CV_32FC2, as cv::readOpticalFlow gives
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include <opencv2/core.hpp>

#include "vemo/errors.hpp"
#include "vemo/flow.hpp"
#include "vemo/image.hpp"

namespace vemo::opencv {

// A view of a cv::Mat of 1 (grey) or 3 (R, G, B) channels of CV_8U, CV_16U
// or CV_32F, without copying. The Mat must outlive the call that takes the
// view. OpenCV's own images are B, G, R: convert them first. InvalidInput
// for another depth or channel count.
inline ImageView view(const cv::Mat& mat) {
  if (mat.dims != 2) throw InvalidInput("vemo::opencv::view takes a 2-D cv::Mat");
  const int channels = mat.channels();
  if (channels != 1 && channels != 3)
    throw InvalidInput("vemo::opencv::view takes 1 or 3 channels, not " + std::to_string(channels));
  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(mat.step[0]);
  switch (mat.depth()) {
    case CV_8U: return ImageView(mat.ptr<std::uint8_t>(), mat.cols, mat.rows, channels, stride);
    case CV_16U: return ImageView(mat.ptr<std::uint16_t>(), mat.cols, mat.rows, channels, stride);
    case CV_32F: return ImageView(mat.ptr<float>(), mat.cols, mat.rows, channels, stride);
    default: throw InvalidInput("vemo::opencv::view takes CV_8U, CV_16U or CV_32F samples");
  }
}

// A copy of the flow as a CV_32FC2 cv::Mat (u, v per pixel).
inline cv::Mat to_mat(const Flow& flow) {
  return cv::Mat(flow.height(), flow.width(), CV_32FC2, const_cast<float*>(flow.data())).clone();
}

// A copy of a CV_32FC2 cv::Mat as a Flow. InvalidInput for another type.
inline Flow from_mat(const cv::Mat& mat) {
  if (mat.type() != CV_32FC2) throw InvalidInput("vemo::opencv::from_mat takes a CV_32FC2 cv::Mat");
  Flow flow(mat.cols, mat.rows);
  for (int y = 0; y < mat.rows; ++y) {
    const float* row = mat.ptr<float>(y);
    std::copy(row, row + 2 * mat.cols, flow.data() + 2 * static_cast<std::size_t>(y) * mat.cols);
  }
  return flow;
}

}  // namespace vemo::opencv
