// Parsing of vemo-flow's named options.
#include "programs/flow_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "driver/presets.h"

namespace {

bool parse(std::vector<std::string> args, FlowOptions& options, std::string& error) {
  args.insert(args.begin(), "vemo-flow");
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  options = FlowOptions();
  return parseFlowOptions(static_cast<int>(argv.size()), argv.data(), options, error);
}

}  // namespace

// Both spellings of a value, "--" before a file name starting with '-', a
// CUDA device by number and values the method accepts although they look
// odd. What each option does is checked through the programs
// (tests/flow_programs_test.cpp, tests/video_flow_test.cpp).
TEST(FlowOptions, ValueSpellingsSeparatorAndDeviceNumbers) {
  FlowOptions o;
  std::string error;
  ASSERT_TRUE(parse({"--alpha=12.5", "--solver-iters", "20", "-q", "a", "b", "--output=x.flo", "--viz", "v.JPEG",
                     "--max-flow", "4", "--eta", "-2"},
                    o, error))
      << error;
  EXPECT_FLOAT_EQ(o.alpha, 12.5f);
  EXPECT_EQ(o.solverIterations, 20);
  EXPECT_TRUE(o.quiet);
  EXPECT_EQ(o.output, "x.flo");
  EXPECT_FLOAT_EQ(o.maxFlow, 4.0f);
  EXPECT_FLOAT_EQ(o.eta, -2.0f);  // computed without a pyramid, not refused
  EXPECT_EQ(o.device.backend, vemo::BackendRequest::Auto);

  ASSERT_TRUE(parse({"-o", "f.flo", "--", "-a.png", "b.png"}, o, error)) << error;
  EXPECT_EQ(o.frame1, "-a.png");
  EXPECT_EQ(o.frame2, "b.png");
  ASSERT_TRUE(parse({"a", "b", "-o", "f.flo", "--device=cuda:12"}, o, error)) << error;
  EXPECT_EQ(o.device.backend, vemo::BackendRequest::Cuda);
  EXPECT_EQ(o.device.cudaDevice, 12);
  ASSERT_TRUE(parse({"a", "b", "-o", "f.flo", "--device", "cuda"}, o, error)) << error;
  EXPECT_EQ(o.device.cudaDevice, 0);
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
      {"a", "b", "-o", "f.flo", "--resume"},             // nothing to resume in one pair
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

// A preset sets every value of the method; options of the method given
// explicitly win whether they stand before or after it, and a misspelt
// name is refused with the valid ones.
TEST(FlowOptions, PresetSetsTheMethodAndExplicitOptionsOverrideIt) {
  FlowOptions o;
  std::string error;
  const FlowPreset& fast = findPreset("fast");
  ASSERT_TRUE(parse({"--solver-iters", "7", "a", "b", "-o", "f.flo", "--preset", "fast", "--sigma=0"}, o, error))
      << error;
  EXPECT_EQ(o.preset, "fast");
  EXPECT_EQ(o.solverIterations, 7);
  EXPECT_EQ(o.sigma, 0.0f);
  EXPECT_EQ(o.eta, fast.parameters.eta);
  EXPECT_EQ(o.fixedPointIterations, fast.parameters.fixedPointIterations);

  ASSERT_TRUE(parse({"a", "b", "-o", "f.flo"}, o, error)) << error;
  EXPECT_EQ(o.preset, "default");
  EXPECT_EQ(o.sigma, 0.8f);
  EXPECT_EQ(o.alpha, 30.0f);
  EXPECT_EQ(o.fixedPointIterations, 5);

  EXPECT_FALSE(parse({"a", "b", "-o", "f.flo", "--preset", "fats"}, o, error));
  EXPECT_NE(error.find("ultrafast, fast, default, quality"), std::string::npos) << error;
}
