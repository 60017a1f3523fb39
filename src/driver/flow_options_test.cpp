// Parsing of vemo-flow's named options.
#include "driver/flow_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

bool parse(std::vector<std::string> args, FlowOptions& options, std::string& error) {
  args.insert(args.begin(), "vemo-flow");
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  options = FlowOptions();
  return parseFlowOptions(static_cast<int>(argv.size()), argv.data(), options, error);
}

}  // namespace

TEST(FlowOptions, FramesOutputAndBothValueSpellingsWork) {
  FlowOptions o;
  std::string error;
  ASSERT_TRUE(parse({"a.png", "b.png", "-o", "f.flo"}, o, error)) << error;
  EXPECT_EQ(o.frame1, "a.png");
  EXPECT_EQ(o.frame2, "b.png");
  EXPECT_EQ(o.output, "f.flo");
  EXPECT_EQ(o.device.backend, flowcore::BackendRequest::Auto);

  // Both spellings of a value; the named parameters reaching the method is
  // checked through the programs.
  ASSERT_TRUE(parse({"--alpha=12.5", "--solver-iters", "20", "--device", "cpu", "--threads=2", "-q", "a", "b",
                     "--output=x.flo", "--viz", "v.png", "--max-flow", "4", "--legend", "--backward", "bk.flo",
                     "--occlusions=o.png"},
                    o, error))
      << error;
  EXPECT_FLOAT_EQ(o.alpha, 12.5f);
  EXPECT_EQ(o.solverIterations, 20);
  EXPECT_EQ(o.device.backend, flowcore::BackendRequest::Cpu);
  EXPECT_EQ(o.threads, 2);
  EXPECT_TRUE(o.quiet);
  EXPECT_TRUE(o.legend);
  EXPECT_FLOAT_EQ(o.maxFlow, 4.0f);
  EXPECT_EQ(o.output, "x.flo");
  EXPECT_EQ(o.backward, "bk.flo");
  EXPECT_EQ(o.occlusions, "o.png");

  // A file name starting with '-' after "--"; --help wins over missing frames.
  ASSERT_TRUE(parse({"-o", "f.flo", "--", "-a.png", "b.png"}, o, error)) << error;
  EXPECT_EQ(o.frame1, "-a.png");
  ASSERT_TRUE(parse({"--help"}, o, error));
  EXPECT_TRUE(o.help);
  ASSERT_TRUE(parse({"--sequence", "f/%03d.png", "-o", "o/%03d.flo", "--first", "7"}, o, error)) << error;
  EXPECT_EQ(o.first, 7);
  // A CUDA device by number; plain cuda is device 0.
  ASSERT_TRUE(parse({"a", "b", "-o", "f.flo", "--device=cuda:12"}, o, error)) << error;
  EXPECT_EQ(o.device.backend, flowcore::BackendRequest::Cuda);
  EXPECT_EQ(o.device.cudaDevice, 12);
  ASSERT_TRUE(parse({"a", "b", "-o", "f.flo", "--device", "cuda"}, o, error)) << error;
  EXPECT_EQ(o.device.cudaDevice, 0);
  // Any output alone is a request; eta outside 0..1 is computed, not refused.
  ASSERT_TRUE(parse({"a", "b", "--viz", "v.JPEG", "--eta", "-2"}, o, error)) << error;
  EXPECT_TRUE(o.output.empty());
  EXPECT_FLOAT_EQ(o.eta, -2.0f);
  ASSERT_TRUE(parse({"--video", "c.mp4", "--viz-video", "f.mp4", "--start", "3", "--frames", "5", "--step", "2",
                     "--max-flow", "4"},
                    o, error))
      << error;
  EXPECT_EQ(o.video, "c.mp4");
  EXPECT_EQ(o.vizVideo, "f.mp4");
  EXPECT_EQ(o.start, 3);
  EXPECT_EQ(o.frames, 5);
  EXPECT_EQ(o.step, 2);
}

TEST(FlowOptions, MalformedOrOutOfRangeValuesAreRefusedNotReadAsZero) {
  FlowOptions o;
  std::string error;
  const std::vector<std::vector<std::string>> bad = {
      {"a", "b", "-o", "f.flo", "--alpha", "3x"},        // trailing junk (atof would give 3)
      {"a", "b", "-o", "f.flo", "--alpha", "-1"},        // negative weight
      {"a", "b", "-o", "f.flo", "--eta", "1"},           // no number of scales
      {"a", "b", "-o", "f.flo", "--eta", "1.00000001"},  // the same once narrowed to float
      {"a", "b", "-o", "f.flo", "--sigma", "nan"},       // not finite
      {"a", "b", "-o", "f.flo", "--solver-iters", "2.5"},
      {"a", "b", "-o", "f.flo", "--threads", "0"},
      {"a", "b", "-o", "f.flo", "--device", "gpu"},
      {"a", "b", "-o", "f.flo", "--device", "cuda:-1"},
      {"a", "b", "-o", "f.flo", "--device", "cuda:9999999999"},  // beyond an int
      {"a", "b", "-o", "f.flo", "--max-flow", "0", "--viz", "v.png"},
      {"a", "b", "-o", "f.flo", "--alpha"},              // value missing at the end
      {"a", "b", "-o", "f.flo", "--bogus"},
      {"a", "b", "-o", "f.flo", "--legend"},             // picture options without --viz
      {"a", "-o", "f.flo"},                              // one frame
      {"a", "b"},                                        // no output
      {"--sequence", "s%d.png", "a", "-o", "o%d.flo"},   // frames and a sequence
      {"a", "b", "-o", "f.flo", "--first", "3"},         // --first without a sequence
      {"a", "b", "--viz", "v.gif"},                      // a picture format that is not written
      {"a", "b", "-o", "f.flo", "--step", "2"},          // video options without --video
      {"--video", "c.mp4", "a", "-o", "o%d.flo"},        // frames and a video
      {"--video", "c.mp4", "-o", "o%d.flo", "--frames", "1"},  // a pair needs two frames
  };
  for (const auto& args : bad) {
    std::string joined;
    for (const auto& a : args) joined += a + " ";
    error.clear();
    EXPECT_FALSE(parse(args, o, error)) << joined;
    EXPECT_FALSE(error.empty()) << joined;
  }
  parse({"a", "b", "-o", "f.flo", "--alpha", "3x"}, o, error);
  EXPECT_NE(error.find("--alpha"), std::string::npos) << error;
  EXPECT_NE(error.find("3x"), std::string::npos) << error;
  parse({"a", "b", "-o", "f.flo", "--device", "cuda:x"}, o, error);
  EXPECT_NE(error.find("auto, cpu, cuda or cuda:N"), std::string::npos) << error;
}
