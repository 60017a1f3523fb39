// The video reader and writer against each other: a lossless codec gives
// the frames back exactly, the default codec gives them back closely.
// Broken and missing files are checked through vemo-flow --video
// (tests/video_flow_test.cpp).
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "image/synthetic.h"
#include "support/process.h"
#include "video/video_error.h"
#include "video/video_reader.h"
#include "video/video_writer.h"

namespace {

// Frames of a texture moving one pixel to the right per frame, rounded as
// an 8-bit video stores them.
std::vector<CTensor<float>> movingFrames(int count, int width, int height) {
  std::vector<CTensor<float>> frames;
  const NSynthetic::CTexture texture(3);
  for (int n = 0; n < count; ++n) {
    CTensor<float> f = NSynthetic::renderShifted(texture, width, height, n, 0.0);
    for (size_t i = 0; i < f.elements(); ++i) f.data[i] = std::round(f.data[i]);
    frames.push_back(f);
  }
  return frames;
}

void writeVideo(const std::string& name, const std::vector<CTensor<float>>& frames, VideoRate rate,
                const std::string& codec) {
  CVideoWriter writer(name, frames[0].xSize, frames[0].ySize, rate, codec);
  for (const CTensor<float>& f : frames) writer.write(f);
  writer.finish();
}

class VideoIO : public testing::Test {
 protected:
  void SetUp() override {
    if (!videoSupported()) GTEST_SKIP() << "built without FFmpeg";
    scratch_ = std::make_unique<vemotest::ScratchDir>("vemo_video_");
  }
  std::string path(const std::string& name) const { return scratch_->path(name); }
  std::unique_ptr<vemotest::ScratchDir> scratch_;
};

}  // namespace

TEST_F(VideoIO, LosslessRoundTripGivesTheFramesRateAndCountBack) {
  // An odd size: lossless RGB needs no padding.
  const std::vector<CTensor<float>> frames = movingFrames(5, 37, 21);
  writeVideo(path("clip.avi"), frames, VideoRate{30000, 1001}, "ffv1");
  CVideoReader reader(path("clip.avi"));
  EXPECT_EQ(reader.width(), 37);
  EXPECT_EQ(reader.height(), 21);
  EXPECT_EQ(reader.rate().num, 30000);
  EXPECT_EQ(reader.rate().den, 1001);
  EXPECT_EQ(reader.frameCount(), 5);
  EXPECT_EQ(reader.codecName(), "ffv1");
  CTensor<float> frame;
  ASSERT_TRUE(reader.skip());
  for (int n = 1; n < 5; ++n) {
    ASSERT_TRUE(reader.read(frame)) << n;
    ASSERT_EQ(frame.xSize, 37);
    ASSERT_EQ(frame.zSize, 3);
    for (size_t i = 0; i < frame.elements(); ++i) ASSERT_EQ(frame.data[i], frames[n].data[i]) << n << " " << i;
  }
  EXPECT_FALSE(reader.read(frame));
  EXPECT_EQ(reader.framesDecoded(), 5);

  // An encoder that lists no pixel formats (rawvideo takes any) once made
  // the writer read a null list.
  writeVideo(path("raw.nut"), frames, VideoRate{25, 1}, "rawvideo");
  CVideoReader raw(path("raw.nut"));
  ASSERT_TRUE(raw.read(frame));
  for (size_t i = 0; i < frame.elements(); ++i) ASSERT_EQ(frame.data[i], frames[0].data[i]) << i;

  // The same file from memory (what the fuzz target reads through), and
  // pieces of it: refused with a message or read as far as they go, never
  // read past their end. Frames above the reader's pixel limit are refused.
  const std::string bytes = vemotest::slurp(path("clip.avi"));
  CVideoReader fromMemory(bytes.data(), bytes.size(), "clip in memory");
  EXPECT_EQ(fromMemory.frameCount(), 5);
  for (int n = 0; n < 5; ++n) {
    ASSERT_TRUE(fromMemory.read(frame)) << n;
    for (size_t i = 0; i < frame.elements(); ++i) ASSERT_EQ(frame.data[i], frames[n].data[i]) << n << " " << i;
  }
  EXPECT_FALSE(fromMemory.read(frame));
  EXPECT_THROW(CVideoReader(bytes.data(), 0, "nothing"), EVideoError);
  EXPECT_THROW(CVideoReader(bytes.data(), bytes.size(), "clip", 36 * 21), EVideoError);
  const std::string cut = bytes.substr(0, bytes.size() * 3 / 4);
  try {
    CVideoReader reader(cut.data(), cut.size(), "cut clip");
    while (reader.read(frame)) {
    }
    ADD_FAILURE() << "a clip cut off in its fourth frame was read to its end";
  } catch (const EVideoError& e) {
    EXPECT_NE(std::string(e.what()).find("cut clip"), std::string::npos) << e.what();
  }
}

TEST_F(VideoIO, DefaultCodecIsH264OrMpeg4In420WithEvenSizes) {
  const std::vector<CTensor<float>> frames = movingFrames(3, 37, 21);
  CVideoWriter writer(path("clip.mp4"), 37, 21, VideoRate{25, 1});
  const std::string codec = writer.codecDescription();
  EXPECT_TRUE(codec == "H.264 (libx264)" || codec == "MPEG-4 Part 2 (mpeg4)") << codec;
  for (const CTensor<float>& f : frames) writer.write(f);
  EXPECT_FALSE(vemotest::exists(path("clip.mp4")));  // nothing under the name before finish()
  writer.finish();
  CVideoReader reader(path("clip.mp4"));
  EXPECT_EQ(reader.width(), 38);  // one column and one row copy the edge
  EXPECT_EQ(reader.height(), 22);
  CTensor<float> frame;
  for (int n = 0; n < 3; ++n) {
    ASSERT_TRUE(reader.read(frame));
    double error = 0.0;
    for (int c = 0; c < 3; ++c)
      for (int y = 0; y < 21; ++y)
        for (int x = 0; x < 37; ++x) error += std::fabs(frame(x, y, c) - frames[n](x, y, c));
    EXPECT_LT(error / (3 * 21 * 37), 4.0) << "frame " << n << ", " << codec;
  }
  EXPECT_FALSE(reader.read(frame));
}
