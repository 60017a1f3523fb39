// Runs vemo-flow and vemo-eval as processes: exit status, messages and the
// files they leave behind.
#include <gtest/gtest.h>
#include <dirent.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "backends/cuda/device_probe.h"
#include "driver/flow_metrics.h"
#include "driver/optic_flow.h"
#include "image/jpeg_io.h"
#include "image/png_io.h"
#include "image/ppm_write.h"
#include "image/read_image.h"
#include "image/synthetic.h"
#include "support/process.h"

namespace {

using vemotest::Result;
using vemotest::exists;
using vemotest::quote;
using vemotest::slurp;

const std::string kFlow = VEMO_BINARY_DIR "/vemo-flow";
const std::string kEval = VEMO_BINARY_DIR "/vemo-eval";
const std::string kVemo = VEMO_BINARY_DIR "/vemo";
const std::string kSynth = VEMO_BINARY_DIR "/vemo-synth";
constexpr int kWidth = 48, kHeight = 40;
constexpr float kDx = 1.5f, kDy = -0.5f;

CTensor<float> grey(const CTensor<float>& colour) {
  CTensor<float> g(colour.xSize, colour.ySize, 1);
  for (int y = 0; y < colour.ySize; ++y)
    for (int x = 0; x < colour.xSize; ++x) g(x, y, 0) = colour(x, y, 1);
  return g;
}

// A fresh directory per test with a shifted synthetic pair in several
// formats and its ground truth.
class Programs : public testing::Test {
 protected:
  void SetUp() override {
    scratch_ = std::make_unique<vemotest::ScratchDir>("vemo_programs_");
    dir_ = scratch_->dir();
    NSynthetic::makeShiftedPair(kWidth, kHeight, kDx, kDy, 11, frame1_, frame2_, truth_);
    NImageIO::writePNG(frame1_, path("a.png").c_str());
    NImageIO::writePNG(frame2_, path("b.png").c_str(), 16);
    NImageIO::writePPM(frame2_, path("b.ppm").c_str());
    NImageIO::writeJPEG(frame2_, path("b.jpg").c_str(), 98);
    NImageIO::writePNG(grey(frame1_), path("a_grey.png").c_str());
    NImageIO::writePNG(grey(frame2_), path("b_grey.png").c_str());
    COpticFlow::writeMiddlebury(truth_, path("truth.flo").c_str());
  }

  std::string path(const std::string& name) const { return dir_ + "/" + name; }

  Result run(const std::string& program, const std::vector<std::string>& args) const {
    return scratch_->run(program, args);
  }

  // Files in the test directory whose name starts with '.': leftovers of
  // atomic writes.
  int hiddenFiles() const {
    int n = 0;
    DIR* d = opendir(dir_.c_str());
    while (dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (name != "." && name != ".." && name[0] == '.') ++n;
    }
    closedir(d);
    return n;
  }

  double epeOf(const std::string& flowFile) const {
    CTensor<float> flow;
    COpticFlow::readMiddlebury(path(flowFile).c_str(), flow);
    return evaluateFlow(flow, truth_).epe;
  }

  std::string dir_;
  std::unique_ptr<vemotest::ScratchDir> scratch_;
  CTensor<float> frame1_, frame2_, truth_;
};

}  // namespace

TEST_F(Programs, FlowRecoversTheShiftFromEveryInputFormatWithAllOutputs) {
  for (const char* second : {"b.png", "b.ppm", "b.jpg"}) {
    const Result r = run(kFlow, {"a.png", second, "-o", "f.flo", "--viz", "f.png", "--legend", "--backward",
                                 "back.flo", "--occlusions", "occ.png", "--device", "cpu"});
    ASSERT_EQ(r.status, 0) << second << "\n" << r.err;
    EXPECT_NE(r.out.find("Wrote f.flo, back.flo, f.png, occ.png (48 x 40"), std::string::npos) << r.out;
    // The pipeline's stage timings only appear with --timings.
    EXPECT_EQ(r.out.find("Total time"), std::string::npos) << r.out;
    EXPECT_LT(epeOf("f.flo"), 0.3) << second;
    CTensor<float> back;
    COpticFlow::readMiddlebury(path("back.flo").c_str(), back);
    EXPECT_NEAR(back(kWidth / 2, kHeight / 2, 0), -kDx, 0.3f);
    CTensor<float> picture, mask;
    NImageIO::readImage(path("f.png"), picture);
    EXPECT_EQ(picture.xSize, kWidth + kHeight);  // picture plus the legend panel
    NImageIO::readImage(path("occ.png"), mask);
    // Consistent interior, but the columns that leave the frame are marked.
    EXPECT_EQ(mask(kWidth / 2, kHeight / 2, 0), 0.0f);
    EXPECT_EQ(mask(kWidth - 1, kHeight / 2, 0), 255.0f);
  }
  EXPECT_EQ(hiddenFiles(), 0);

  // Grey PNGs, quiet, explicit thread count and stage timings: each flow's
  // own times under a line naming it.
  Result r = run(kFlow, {"a_grey.png", "b_grey.png", "-o", "g.flo", "-q", "--threads", "1", "--timings",
                         "--backward", "gb.flo"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find("Wrote"), std::string::npos);
  const size_t forward = r.out.find("Forward flow a_grey.png -> b_grey.png:\n");
  const size_t backward = r.out.find("Backward flow b_grey.png -> a_grey.png:\n");
  ASSERT_NE(forward, std::string::npos) << r.out;
  ASSERT_NE(backward, std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  descriptor matching ", forward), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  total ", backward), std::string::npos) << r.out;
  // Labelled lines only, not the vemo program's raw ones ("10 8 48 40").
  EXPECT_EQ(r.out.find("# scales"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find(" time = "), std::string::npos) << r.out;
  EXPECT_LT(epeOf("g.flo"), 0.5);

  // A picture alone is a complete request; its extension picks the format.
  r = run(kFlow, {"a.png", "b.png", "--viz", "v.jpg"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Wrote v.jpg ("), std::string::npos) << r.out;
  EXPECT_EQ(slurp(path("v.jpg")).substr(0, 3), "\xff\xd8\xff");
  r = run(kFlow, {"a.png", "b.png", "--viz", "v.gif"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find(".png, .jpg or .jpeg"), std::string::npos) << r.err;
  // A flow file with another extension: one warning, naming the user's file.
  r = run(kFlow, {"a.png", "b.png", "-o", "out.txt"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "vemo-flow: warning: out.txt does not end in .flo; it is written as a .flo file all the same\n");
  EXPECT_EQ(hiddenFiles(), 0);
  // Outputs in folders that do not exist yet: the folders are made.
  r = run(kFlow, {"a.png", "b.png", "-o", "new/deep/f.flo", "--viz", "pics/f.png", "--backward", "back/b.flo",
                  "--occlusions", "masks/o.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  for (const char* made : {"new/deep/f.flo", "pics/f.png", "back/b.flo", "masks/o.png"})
    EXPECT_TRUE(exists(path(made))) << made;
}

TEST_F(Programs, NamedParametersReachTheMethodLikeVemosPositionalOnes) {
  // Every parameter differs from its default and from the others, so a
  // swapped or dropped option changes the flow.
  NImageIO::writePPM(frame1_, path("a.ppm").c_str());
  Result r = run(kVemo, {"a.ppm", "b.ppm", "0.5", "20", "200", "7", "0.9", "4", "8"});
  ASSERT_EQ(r.status, 0) << r.err;
  r = run(kFlow, {"a.ppm", "b.ppm", "-o", "named.flo", "--sigma", "0.5", "--alpha", "20", "--beta", "200",
                  "--gamma", "7", "--eta", "0.9", "--fixed-point-iters", "4", "--solver-iters", "8"});
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string positional = slurp(path("a.ppmVEMO.flo")), named = slurp(path("named.flo"));
  ASSERT_EQ(positional.size(), 12u + 8u * kWidth * kHeight);
  EXPECT_TRUE(positional == named) << "vemo-flow and vemo disagree for the same parameters";
  r = run(kFlow, {"a.ppm", "b.ppm", "-o", "default.flo"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_FALSE(slurp(path("default.flo")) == named);
  // Without parameters both programs use the same defaults.
  r = run(kVemo, {"a.ppm", "b.ppm"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(slurp(path("a.ppmVEMO.flo")) == slurp(path("default.flo"))) << "the programs' defaults differ";
}

TEST_F(Programs, FlowRefusesBadInputsWithAMessageAndLeavesNoOutput) {
  // Frames of different sizes.
  NImageIO::writePNG(CTensor<float>(30, 40, 3, 9.0f), path("small.png").c_str());
  Result r = run(kFlow, {"a.png", "small.png", "-o", "f.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("frames differ in size"), std::string::npos) << r.err;
  // Frames below 2 x 2.
  NImageIO::writePNG(CTensor<float>(1, 5, 3, 9.0f), path("thin1.png").c_str());
  NImageIO::writePNG(CTensor<float>(1, 5, 3, 19.0f), path("thin2.png").c_str());
  r = run(kFlow, {"thin1.png", "thin2.png", "-o", "f.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("too small"), std::string::npos) << r.err;
  // Missing, corrupt and unknown-format inputs.
  r = run(kFlow, {"a.png", "missing.png", "-o", "f.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vemo-flow: cannot read missing.png: No such file or directory\n");
  std::string png = slurp(path("b.png"));
  std::ofstream(path("cut.png"), std::ios::binary) << png.substr(0, png.size() / 2);
  r = run(kFlow, {"a.png", "cut.png", "-o", "f.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Could not decode cut.png"), std::string::npos) << r.err;
  // An output folder that cannot be made, or an output that is a folder,
  // fails before any computing with one message.
  r = run(kFlow, {"a.png", "b.png", "-o", "f.flo", "--viz", "a.png/f.png"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vemo-flow: cannot write a.png/f.png: folder a.png cannot be created: Not a directory\n");
  ASSERT_EQ(mkdir(path("frames").c_str(), 0755), 0);
  r = run(kFlow, {"a.png", "b.png", "-o", "frames"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vemo-flow: cannot write frames: it is a folder; name a file in it, such as frames/flow.flo\n");
  r = run(kFlow, {"a.png", "frames", "-o", "f.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vemo-flow: cannot read frames: it is a folder, not a frame\n");
  EXPECT_FALSE(exists(path("f.flo")));
  EXPECT_EQ(hiddenFiles(), 0);
#ifndef VEMO_SANITIZE_BUILD  // the sanitizers' shadow memory lies beyond any address-space limit
  // A pair that does not fit under the process's address-space limit
  // (512 MiB; the run needs about 1.5 GiB) is refused before any work.
  NImageIO::writePNG(CTensor<float>(2000, 1200, 3, 9.0f), path("big1.png").c_str());
  NImageIO::writePNG(CTensor<float>(2000, 1200, 3, 19.0f), path("big2.png").c_str());
  r = run("/bin/sh", {"-c", "ulimit -v 524288 && exec " + quote(kFlow) + " big1.png big2.png -o f.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("a 2000 x 1200 frame with 3 channels needs about"), std::string::npos) << r.err;
  EXPECT_FALSE(exists(path("f.flo")));
#endif

  // Command-line errors: status 2 and a pointer to --help.
  r = run(kFlow, {"a.png", "b.png", "-o", "f.flo", "--alpha", "x"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("--help"), std::string::npos);
  r = run(kFlow, {"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Usage: vemo-flow"), std::string::npos);
  EXPECT_FALSE(exists(path("f.flo")));
}

TEST_F(Programs, FlowOnFramesBelowTheMatchingGridSizeRunsWithANote) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(20, 20, 1.0f, 0.0f, 5, f1, f2, truth);
  NImageIO::writePNG(f1, path("s1.png").c_str());
  NImageIO::writePNG(f2, path("s2.png").c_str());
  Result r = run(kFlow, {"s1.png", "s2.png", "-o", "s.flo"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("matching is skipped"), std::string::npos) << r.err;
  EXPECT_TRUE(exists(path("s.flo")));
  // Asking for CUDA where it cannot run says so instead of switching quietly.
  if (vemo::cudaDeviceUsable()) return;
  r = run(kFlow, {"s1.png", "s2.png", "-o", "s.flo", "--device", "cuda", "-q"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.err.find("running on the cpu backend instead"), std::string::npos) << r.err;
}

TEST_F(Programs, SequenceWritesOneFlowPerPairAndReportsProgress) {
  ASSERT_EQ(mkdir(path("frames").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(path("flows").c_str(), 0755), 0);
  for (int n = 1; n <= 3; ++n) {
    CTensor<float> frame = NSynthetic::renderShifted(NSynthetic::CTexture(11), kWidth, kHeight, n * kDx, n * kDy);
    NImageIO::writePNG(frame, path("frames/0000" + std::to_string(n) + ".png").c_str());
  }
  Result r = run(kFlow, {"--sequence", "frames/%05d.png", "-o", "flows/%05d.flo", "--viz", "flows/%05d.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_LT(epeOf("flows/00001.flo"), 0.3);
  EXPECT_LT(epeOf("flows/00002.flo"), 0.3);
  EXPECT_TRUE(exists(path("flows/00002.png")));
  EXPECT_FALSE(exists(path("flows/00003.flo")));
  // Not a terminal: plain progress lines.
  EXPECT_NE(r.err.find("2/2 pairs"), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find('\r'), std::string::npos);

  r = run(kFlow, {"--sequence", "frames/%05d.png", "-o", "flows/fixed.flo"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("exactly one %d"), std::string::npos) << r.err;
  r = run(kFlow, {"--sequence", "frames/%05d.png", "-o", "flows/%05d.flo", "--first", "3"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("at least two"), std::string::npos) << r.err;
}

TEST_F(Programs, EvalReportsTextJsonAndAnErrorPicture) {
  CTensor<float> off = truth_;
  for (int y = 0; y < kHeight; ++y) off(0, y, 0) += 2.0f;   // one column 2 px off
  off(1, 0, 0) += 10.0f;                                    // past the scale
  CTensor<float> truth = truth_;
  truth(5, 5, 0) = 1e9f;                                    // unknown truth
  truth(6, 6, 1) = std::numeric_limits<float>::quiet_NaN();  // not finite: left out too, and said so
  COpticFlow::writeMiddlebury(off, path("off.flo").c_str());
  COpticFlow::writeMiddlebury(truth, path("truth2.flo").c_str());

  Result r = run(kEval, {"off.flo", "truth2.flo", "--error-map", "err.png"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("1918 with known ground truth (1 more not finite: left out)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("EPE > 1 px"), std::string::npos);
  CTensor<float> picture;
  NImageIO::readImage(path("err.png"), picture);
  EXPECT_EQ(picture.xSize, kWidth);
  EXPECT_EQ(picture(0, 0, 0), 255.0f);                    // 2 px of 3: yellow
  EXPECT_EQ(picture(0, 0, 1), 255.0f);
  EXPECT_EQ(picture(0, 0, 2), 0.0f);
  EXPECT_EQ(picture(10, 10, 0) + picture(10, 10, 1) + picture(10, 10, 2), 0.0f);  // exact: black
  EXPECT_EQ(picture(1, 0, 0) + picture(1, 0, 1) + picture(1, 0, 2), 3 * 255.0f);  // saturates at white
  EXPECT_EQ(picture(5, 5, 0), 0.0f);                       // unknown truth: marked blue, not black
  EXPECT_GT(picture(5, 5, 2), 0.0f);

  r = run(kEval, {"--json", "truth.flo", "truth.flo"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.front(), '{');
  EXPECT_NE(r.out.find("\"epe\": 0,"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"known_pixels\": 1920"), std::string::npos) << r.out;

  CTensor<float> tiny(3, 3, 2, 0.0f);
  COpticFlow::writeMiddlebury(tiny, path("tiny.flo").c_str());
  r = run(kEval, {"tiny.flo", "truth.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("3 x 3"), std::string::npos) << r.err;
  r = run(kEval, {"truth.flo"});
  EXPECT_EQ(r.status, 2);
  r = run(kEval, {"truth.flo", "truth.flo", "--error-map", "err.gif"});
  EXPECT_EQ(r.status, 2);
  r = run(kEval, {"--json", "nothere.flo", "truth.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(r.out.empty()) << r.out;
  EXPECT_NE(r.err.find("cannot read nothere.flo"), std::string::npos) << r.err;
  // Files that are not flows, or damaged ones, are named as such and not
  // evaluated (vemo's own reader ignores the tag; vemo-eval does not).
  std::string flo = slurp(path("truth.flo"));
  std::ofstream(path("tag.flo"), std::ios::binary) << "XXXX" << flo.substr(4);
  std::ofstream(path("cut.flo"), std::ios::binary) << flo.substr(0, 1000);
  r = run(kEval, {"tag.flo", "truth.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_TRUE(r.out.empty()) << r.out;
  EXPECT_EQ(r.err, "vemo-eval: cannot read tag.flo: not a .flo flow file (it does not start with the tag PIEH)\n");
  r = run(kEval, {"truth.flo", "a.png"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("cannot read a.png: not a .flo flow file"), std::string::npos) << r.err;
  r = run(kEval, {"cut.flo", "truth.flo"});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "vemo-eval: cannot read cut.flo: a damaged .flo file: its header says 48 x 40 vectors "
                   "(15372 bytes) but it holds 1000 bytes\n");
  // The error map's folders are made.
  r = run(kEval, {"truth.flo", "truth.flo", "--error-map", "maps/err.png"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(exists(path("maps/err.png")));
}

TEST_F(Programs, SynthTakesHelpForHelpNotForItsFolder) {
  Result r = run(kSynth, {"--help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("Usage : ", 0), 0u) << r.out;
  r = run(kSynth, {"--frames"});
  EXPECT_EQ(r.status, 2);
  EXPECT_NE(r.err.find("unknown option --frames"), std::string::npos) << r.err;
  // A folder that does not exist yet is made.
  r = run(kSynth, {"syn/pair", "1", "0", "8", "8"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(exists(path("syn/pair/truth.flo")));
}
