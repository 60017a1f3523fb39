// Built with nothing but the public headers on the include path: the
// headers stand alone, and the OpenCV bridge (where OpenCV's headers are
// present) views Mats without copying and converts flows both ways.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include <vemo/vemo.hpp>
#if defined(VEMO_TEST_OPENCV)
#include <vemo/opencv.hpp>
#endif

namespace {

TEST(PublicHeaders, VersionOfTheHeadersIsTheLibrarys) { EXPECT_EQ(std::string(vemo::version()), VEMO_VERSION_STRING); }

#if defined(VEMO_TEST_OPENCV)
TEST(OpenCvBridge, ViewsMatsInPlaceAndConvertsFlowsBothWays) {
  cv::Mat padded(6, 9, CV_8UC3, cv::Scalar(1, 2, 3));
  const cv::Mat roi = padded(cv::Rect(2, 1, 5, 4));
  const vemo::ImageView v = vemo::opencv::view(roi);
  EXPECT_EQ(v.data, roi.data);
  EXPECT_EQ(v.width, 5);
  EXPECT_EQ(v.height, 4);
  EXPECT_EQ(v.stride, 27);
  EXPECT_EQ(v.type, vemo::PixelType::UInt8);
  EXPECT_EQ(vemo::opencv::view(cv::Mat(3, 3, CV_32FC1)).type, vemo::PixelType::Float32);
  EXPECT_THROW(vemo::opencv::view(cv::Mat(3, 3, CV_64FC3)), vemo::InvalidInput);
  EXPECT_THROW(vemo::opencv::view(cv::Mat(3, 3, CV_8UC4)), vemo::InvalidInput);

  vemo::Flow flow(3, 2);
  for (std::size_t i = 0; i < flow.size(); ++i) flow.data()[i] = 0.25f * i;
  const cv::Mat uv = vemo::opencv::to_mat(flow);
  ASSERT_EQ(uv.type(), CV_32FC2);
  EXPECT_EQ(uv.at<cv::Vec2f>(1, 2)[1], flow.v(2, 1));
  const vemo::Flow back = vemo::opencv::from_mat(uv);
  EXPECT_EQ(std::memcmp(back.data(), flow.data(), flow.size() * sizeof(float)), 0);
  EXPECT_THROW(vemo::opencv::from_mat(cv::Mat(2, 2, CV_32FC1)), vemo::InvalidInput);
}
#endif

}  // namespace
