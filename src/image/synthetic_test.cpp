#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include "image/exceptions.h"
#include "image/ppm_write.h"
#include "image/synthetic.h"
#include "image/write_error.h"

namespace {
std::string tempPath(const std::string& name) {
  return testing::TempDir() + "vemo_synth_" + std::to_string(getpid()) + "_" + name;
}
}  // namespace

TEST(SyntheticPair, FrameTwoIsFrameOneMovedByTheTrueFlow) {
  CTensor<float> f1, f2, flow;
  NSynthetic::makeShiftedPair(30, 20, 3.0f, -2.0f, 11, f1, f2, flow);
  ASSERT_EQ(f1.zSize, 3);
  ASSERT_EQ(flow.zSize, 2);
  for (int c = 0; c < 3; ++c)
    for (int y = 2; y < 20; ++y)
      for (int x = 0; x < 27; ++x) ASSERT_EQ(f2(x + 3, y - 2, c), f1(x, y, c)) << x << "," << y;
  for (size_t i = 0; i < flow.planeSize(); ++i) {
    ASSERT_EQ(flow.data[i], 3.0f);
    ASSERT_EQ(flow.data[flow.planeSize() + i], -2.0f);
  }
  // Textured, not flat.
  double mean = 0, square = 0;
  for (size_t i = 0; i < f1.elements(); ++i) {
    mean += f1.data[i];
    square += double(f1.data[i]) * f1.data[i];
  }
  mean /= f1.elements();
  EXPECT_GT(std::sqrt(square / f1.elements() - mean * mean), 15.0);
  CTensor<float> other1, other2, other3;
  testing::internal::CaptureStderr();
  EXPECT_THROW(NSynthetic::makeShiftedPair(0, 20, 1, 1, 1, other1, other2, other3),
               ETensorIncompatibleSize);
  testing::internal::GetCapturedStderr();
}

TEST(PpmWriter, RoundsClampsAndReadsBackThroughThePpmReader) {
  CTensor<float> image(3, 2, 3, 0.0f);
  const float red[6] = {-5.0f, 0.4f, 0.6f, 254.5f, 300.0f, std::numeric_limits<float>::quiet_NaN()};
  for (int i = 0; i < 6; ++i) image.data[i] = red[i];
  image.data[6 + 4] = 17.0f;   // green of pixel 4
  image.data[12 + 5] = 99.0f;  // blue of pixel 5
  const std::string path = tempPath("image.ppm");
  NImageIO::writePPM(image, path.c_str());
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(bytes.substr(0, 11), "P6\n3 2\n255\n");
  ASSERT_EQ(bytes.size(), 11u + 18u);

  CTensor<float> back;
  back.readFromPPM(path.c_str());
  ASSERT_EQ(back.xSize, 3);
  ASSERT_EQ(back.ySize, 2);
  const float expectedRed[6] = {0, 0, 1, 255, 255, 0};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(back.data[i], expectedRed[i]) << i;
  EXPECT_EQ(back.data[6 + 4], 17.0f);
  EXPECT_EQ(back.data[12 + 5], 99.0f);

  std::remove(path.c_str());
}

TEST(PpmWriter, RefusesBadImagesAndUnwritableTargets) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(NImageIO::writePPM(CTensor<float>(2, 2, 2, 0.0f), tempPath("a.ppm").c_str()),
               ETensorIncompatibleSize);
  EXPECT_THROW(NImageIO::writePPM(CTensor<float>(), tempPath("a.ppm").c_str()),
               ETensorIncompatibleSize);
  CTensor<float> image(4, 4, 3, 1.0f);
  EXPECT_THROW(NImageIO::writePPM(image, testing::TempDir().c_str()), EFileNotFound);
  if (access("/dev/full", W_OK) == 0) {
    CTensor<float> big(256, 256, 3, 1.0f);
    EXPECT_THROW(NImageIO::writePPM(big, "/dev/full"), EFileWriteFailed);
    EXPECT_EQ(access("/dev/full", F_OK), 0);
  }
  testing::internal::GetCapturedStderr();
}
