#include <gtest/gtest.h>
#include <unistd.h>

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

// That frame 2 is frame 1 moved by the true flow is checked by every test
// that measures a computed flow against the pair's truth; here only the
// refusal of an empty size (vemo-synth passes the user's size through).
TEST(SyntheticPair, EmptySizeIsRefused) {
  CTensor<float> f1, f2, flow;
  testing::internal::CaptureStderr();
  EXPECT_THROW(NSynthetic::makeShiftedPair(0, 20, 1, 1, 1, f1, f2, flow), ETensorIncompatibleSize);
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
