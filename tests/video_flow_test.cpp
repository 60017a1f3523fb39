// vemo-flow --video as a process: flows equal to those of the frame-folder
// path on the same decoded frames, frame selection, the flow video, and
// clips that break off or change size.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cmath>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "driver/optic_flow.h"
#include "image/png_io.h"
#include "image/synthetic.h"
#include "support/process.h"
#include "video/video_error.h"
#include "video/video_reader.h"
#include "video/video_writer.h"

namespace {

using vemotest::Result;
using vemotest::exists;
using vemotest::slurp;

const std::string kFlow = VEMO_BINARY_DIR "/vemo-flow";
constexpr int kWidth = 48, kHeight = 40, kFrames = 4;

// A texture moving by (1.5, -0.5) pixels per frame, as an 8-bit clip.
void writeClip(const std::string& name, int frames, int width, int height, const std::string& codec) {
  const NSynthetic::CTexture texture(11);
  CVideoWriter writer(name, width, height, VideoRate{10, 1}, codec);
  for (int n = 0; n < frames; ++n) writer.write(NSynthetic::renderShifted(texture, width, height, 1.5 * n, -0.5 * n));
  writer.finish();
}

class VideoFlow : public testing::Test {
 protected:
  void SetUp() override {
    if (!videoSupported()) GTEST_SKIP() << "built without FFmpeg";
    scratch_ = std::make_unique<vemotest::ScratchDir>("vemo_video_flow_");
    for (const char* dir : {"frames", "v", "s"}) ASSERT_EQ(mkdir(path(dir).c_str(), 0755), 0);
    writeClip(path("clip.avi"), kFrames, kWidth, kHeight, "ffv1");
  }
  std::string path(const std::string& name) const { return scratch_->path(name); }
  Result run(const std::vector<std::string>& args) const { return scratch_->run(kFlow, args); }

  // The clip's frames as the reader gives them, saved as PNG frames/%05d.png.
  void decodeToPngs() const {
    CVideoReader reader(path("clip.avi"));
    CTensor<float> frame;
    for (int n = 0; reader.read(frame); ++n) {
      char name[32];
      std::snprintf(name, sizeof name, "frames/%05d.png", n);
      NImageIO::writePNG(frame, path(name).c_str());
    }
  }

  std::unique_ptr<vemotest::ScratchDir> scratch_;
};

bool validFlow(const std::string& file, int width, int height) {
  CTensor<float> flow;
  COpticFlow::readMiddlebury(file.c_str(), flow);
  return flow.xSize == width && flow.ySize == height && std::isfinite(flow(0, 0, 0));
}

}  // namespace

TEST_F(VideoFlow, FlowsEqualTheFrameFolderPathAndTheFlowVideoFollowsTheClip) {
  Result r = run({"--video", "clip.avi", "-o", "v/%05d.flo", "--viz-video", "flow.mp4", "--device", "cpu"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("full brightness at"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("the longest vector of the first pair"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Wrote v/00000.flo to v/00002.flo, flow.mp4 (3 pairs of 48 x 40"), std::string::npos) << r.out;
  EXPECT_NE(r.err.find("3/3 pairs"), std::string::npos) << r.err;  // the clip announces its length
  EXPECT_FALSE(exists(path("v/00003.flo")));

  decodeToPngs();
  r = run({"--sequence", "frames/%05d.png", "-o", "s/%05d.flo", "--device", "cpu", "-q"});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* n : {"00000", "00001", "00002"}) {
    const std::string video = slurp(path(std::string("v/") + n + ".flo"));
    EXPECT_EQ(video.size(), 12u + 8u * kWidth * kHeight);
    EXPECT_TRUE(video == slurp(path(std::string("s/") + n + ".flo"))) << "pair " << n;
  }

  // One flow frame per pair, at the clip's rate, in a codec players read.
  CVideoReader flowVideo(path("flow.mp4"));
  EXPECT_EQ(flowVideo.rate().num, 10);
  EXPECT_TRUE(flowVideo.codecName() == "h264" || flowVideo.codecName() == "mpeg4") << flowVideo.codecName();
  CTensor<float> frame;
  int frames = 0;
  while (flowVideo.read(frame)) ++frames;
  EXPECT_EQ(frames, 3);

  // --step 2: the pair (0, 2) is the one the two frames give on their own;
  // --start and --frames pick one pair, pictures as patterns.
  r = run({"--video", "clip.avi", "-o", "v/s%05d.flo", "--step", "2", "--device", "cpu", "-q"});
  ASSERT_EQ(r.status, 0) << r.err;
  r = run({"frames/00000.png", "frames/00002.png", "-o", "pair.flo", "--device", "cpu", "-q"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(slurp(path("v/s00000.flo")) == slurp(path("pair.flo")));
  EXPECT_FALSE(exists(path("v/s00002.flo")));  // frame 4 does not exist
  r = run({"--video", "clip.avi", "--viz", "v/p%05d.png", "--start", "1", "--frames", "2", "--device", "cpu"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(exists(path("v/p00001.png")));
  EXPECT_FALSE(exists(path("v/p00002.png")));
  EXPECT_NE(r.err.find("1/1 pairs"), std::string::npos) << r.err;
}

TEST_F(VideoFlow, BrokenClipsStopWithAMessageAndKeepTheFlowsBefore) {
  Result r = run({"--video", "missing.mp4", "-o", "new/%05d.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vemo-flow: cannot read missing.mp4: No such file or directory\n");
  EXPECT_FALSE(exists(path("new"))) << "output folders are made only once the input is there";
  std::ofstream(path("notes.mp4")) << "these are notes, not a video\n";
  r = run({"--video", "notes.mp4", "-o", "v/%05d.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("notes.mp4: not a video file"), std::string::npos) << r.err;
  r = run({"--video", "clip.avi", "-o", "v/%05d.flo", "--viz-video", "flow.gif2"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("names no video format"), std::string::npos) << r.err;
  r = run({"--video", "clip.avi", "-o", "v/%05d.flo", "--start", "4"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("--start 4 is past its end"), std::string::npos) << r.err;

  // A clip cut off in its fifth frame: the pairs before it, then the
  // message; the flows and the flow video of those pairs are complete.
  writeClip(path("long.avi"), 6, kWidth, kHeight, "ffv1");
  const std::string whole = slurp(path("long.avi"));
  std::ofstream(path("cut.avi"), std::ios::binary) << whole.substr(0, whole.size() * 4 / 5);
  r = run({"--video", "cut.avi", "-o", "v/%05d.flo", "--viz-video", "cut.mkv", "--device", "cpu", "-q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("truncated"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("pairs before are complete; cut.mkv holds them"), std::string::npos) << r.err;
  EXPECT_TRUE(validFlow(path("v/00000.flo"), kWidth, kHeight));
  EXPECT_TRUE(validFlow(path("v/00001.flo"), kWidth, kHeight));
  EXPECT_TRUE(exists(path("cut.mkv")));

  // Two MPEG-TS clips joined with cat: the demuxer marks the packet where
  // the stream's counters restart as damaged, but the stream goes on, and
  // what stops the run is the change of size, said as such.
  writeClip(path("a.ts"), 5, kWidth, kHeight, "mpeg2video");
  writeClip(path("b.ts"), 4, 32, 24, "mpeg2video");
  std::ofstream(path("joined.ts"), std::ios::binary) << slurp(path("a.ts")) << slurp(path("b.ts"));
  r = run({"--video", "joined.ts", "-o", "v/t%05d.flo", "--device", "cpu", "-q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find(" is 32 x 24 but frame "), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("is 48 x 40: the frames of a clip must keep one size"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find("damaged"), std::string::npos) << r.err;
  EXPECT_TRUE(validFlow(path("v/t00002.flo"), kWidth, kHeight));

  // Two H.264 streams of different sizes one after the other, as cameras
  // and stream dumps produce them: the size change stops the run after the
  // pairs of the first stream.
  try {
    writeClip(path("a.h264"), 2, kWidth, kHeight, "libx264");
    writeClip(path("b.h264"), 2, 32, 24, "libx264");
  } catch (const EVideoError& e) {
    GTEST_SKIP() << "no H.264 encoder for the size-change clip: " << e.what();
  }
  std::ofstream(path("joined.h264"), std::ios::binary) << slurp(path("a.h264")) << slurp(path("b.h264"));
  r = run({"--video", "joined.h264", "-o", "v/j%05d.flo", "--device", "cpu", "-q"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("frame 2 is 32 x 24 but frame 1 is 48 x 40"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("the outputs of the 1 pair before are complete"), std::string::npos) << r.err;
  EXPECT_TRUE(validFlow(path("v/j00000.flo"), kWidth, kHeight));
  EXPECT_FALSE(exists(path("v/j00001.flo")));
}

// SIGINT or SIGTERM during a run of pairs: status 130 / 143 after one line,
// only complete outputs and a playable flow video of the pairs done; the
// same command with --resume keeps those and computes the rest.
TEST_F(VideoFlow, SignalsLeaveOnlyCompleteOutputsAndResumeComputesTheRest) {
#ifdef VEMO_SANITIZE_BUILD
  constexpr int width = 96, height = 72;
#else
  constexpr int width = 160, height = 120;
#endif
  constexpr int frames = 10;
  writeClip(path("ten.avi"), frames, width, height, "ffv1");
  const std::vector<std::string> video = {"--video", "ten.avi", "-o", "v/%05d.flo", "--viz-video", "v/flow.mkv",
                                          "--device", "cpu", "--threads", "1"};
  Result r = scratch_->runUntil(kFlow, video, "v/00000.flo", SIGTERM);
  EXPECT_EQ(r.status, 143) << r.err;
  const std::string last = r.err.substr(r.err.rfind('\n', r.err.size() - 2) + 1);
  EXPECT_EQ(last.rfind("vemo-flow: interrupted after ", 0), 0u) << r.err;
  EXPECT_NE(last.find("v/flow.mkv holds them; the same command with --resume computes the rest"),
            std::string::npos) << last;
  const auto numbered = [](const char* pattern, int n) {
    char name[32];
    std::snprintf(name, sizeof name, pattern, n);
    return std::string(name);
  };
  int done = 0;
  while (exists(path(numbered("v/%05d.flo", done)))) EXPECT_TRUE(validFlow(path(numbered("v/%05d.flo", done++)), width, height));
  ASSERT_GT(done, 0);
  ASSERT_LT(done, frames - 1) << "the run ended before the signal";
  {
    CVideoReader flowVideo(path("v/flow.mkv"));
    CTensor<float> frame;
    int shown = 0;
    while (flowVideo.read(frame)) ++shown;
    EXPECT_EQ(shown, done);
  }
  r = scratch_->run("/bin/sh", {"-c", "ls -a v | grep '^\\.' | grep -v '^\\.\\.\\?$'"});
  EXPECT_EQ(r.out, "") << "temporary files left behind";

  std::vector<std::string> resumed = video;
  resumed.push_back("--resume");
  r = run(resumed);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find(std::to_string(done) + (done == 1 ? " complete pair" : " complete pairs") + " kept, " +
                       std::to_string(frames - 1 - done) + " computed"),
            std::string::npos) << r.out;
  CVideoReader flowVideo(path("v/flow.mkv"));
  CTensor<float> frame;
  int shown = 0;
  while (flowVideo.read(frame)) ++shown;
  EXPECT_EQ(shown, frames - 1);

  // A sequence of frame files, stopped by SIGINT, then resumed.
  CVideoReader reader(path("ten.avi"));
  for (int n = 0; reader.read(frame); ++n) NImageIO::writePNG(frame, path(numbered("frames/%05d.png", n)).c_str());
  const std::vector<std::string> sequence = {"--sequence", "frames/%05d.png", "-o", "s/%05d.flo", "--device", "cpu",
                                             "--threads", "1"};
  r = scratch_->runUntil(kFlow, sequence, "s/00000.flo", SIGINT);
  EXPECT_EQ(r.status, 130) << r.err;
  EXPECT_NE(r.err.find("interrupted after "), std::string::npos) << r.err;
  resumed = sequence;
  resumed.push_back("--resume");
  r = run(resumed);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("computed)"), std::string::npos) << r.out;
  EXPECT_EQ(slurp(path("s/00008.flo")), slurp(path("v/00008.flo")));
}
