#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "driver/run_flow.h"
#include "driver/vemo.h"
#include "image/exceptions.h"
#include "image/recursive_smooth.h"

namespace {

CTensor<float> randomFrame(int w, int h, unsigned seed) {
  std::mt19937 rng(seed);
  CTensor<float> t(w, h, 3);
  for (size_t i = 0; i < t.elements(); ++i) t.data[i] = static_cast<float>(rng() % 256);
  return t;
}

bool identical(const CTensor<float>& a, const CTensor<float>& b) {
  if (a.xSize != b.xSize || a.ySize != b.ySize || a.zSize != b.zSize) return false;
  for (size_t i = 0; i < a.elements(); ++i)
    if (a.data[i] != b.data[i]) return false;
  return true;
}

// The five accumulated times of each block of timing lines in the output.
std::vector<std::vector<double>> timingBlocks(const std::string& out) {
  const std::regex block(
      R"(Memcpy time = (\d+\.\d{6}) \nFilter time = (\d+\.\d{6}) \nHOG time = (\d+\.\d{6}) \n)"
      R"(Var time = (\d+\.\d{6}) \nTotal time = (\d+\.\d{6}) \n)");
  std::vector<std::vector<double>> blocks;
  for (auto it = std::sregex_iterator(out.begin(), out.end(), block); it != std::sregex_iterator();
       ++it) {
    std::vector<double> values;
    for (int i = 1; i <= 5; ++i) values.push_back(std::atof((*it)[i].str().c_str()));
    blocks.push_back(values);
  }
  return blocks;
}

}  // namespace

TEST(FlowPipeline, RefusesMismatchedOrDegenerateFramesBeforeTouchingThem) {
  CTensor<float> flow(3, 3, 2, 5.0f);
  const CTensor<float> a = randomFrame(8, 6, 1);
  struct Case {
    CTensor<float> f1, f2;
  };
  std::vector<Case> cases = {{a, randomFrame(8, 7, 2)},
                             {a, randomFrame(7, 6, 2)},
                             {a, CTensor<float>(8, 6, 1, 0.0f)},
                             {randomFrame(1, 6, 3), randomFrame(1, 6, 4)},
                             {randomFrame(8, 1, 3), randomFrame(8, 1, 4)},
                             {CTensor<float>(), CTensor<float>()}};
  for (Case& c : cases) {
    const CTensor<float> before = c.f1;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_THROW(runFlowGPU(c.f1, c.f2, flow, 0.8f, 30, 300, 5, 0.95f, 1, 1),
                 ETensorIncompatibleSize)
        << c.f1.xSize << "x" << c.f1.ySize << " vs " << c.f2.xSize << "x" << c.f2.ySize;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_NE(testing::internal::GetCapturedStderr().find("ETensorIncompatibleSize"),
              std::string::npos);
    EXPECT_TRUE(identical(c.f1, before));
  }
  EXPECT_EQ(flow.xSize, 3);
  EXPECT_EQ(flow.data[0], 5.0f);
}

TEST(FlowPipeline, PresmoothsInPlaceOnlyForPositiveSigmaAndResizesFlow) {
  const CTensor<float> original1 = randomFrame(16, 12, 5);
  const CTensor<float> original2 = randomFrame(16, 12, 6);
  for (float sigma : {0.0f, -1.0f}) {
    CTensor<float> f1(original1), f2(original2), flow(4, 4, 1, 0.0f);
    testing::internal::CaptureStdout();
    runFlowGPU(f1, f2, flow, sigma, 30, 300, 5, 0.95f, 1, 1);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(identical(f1, original1)) << "sigma " << sigma;
    EXPECT_TRUE(identical(f2, original2)) << "sigma " << sigma;
    EXPECT_EQ(flow.xSize, 16);
    EXPECT_EQ(flow.ySize, 12);
    EXPECT_EQ(flow.zSize, 2);
  }
  // Horizontal pass before vertical pass, on each frame.
  CTensor<float> expected1(original1), expected2(original2);
  NFilter::recursiveSmoothX(expected1, 1.5f);
  NFilter::recursiveSmoothY(expected1, 1.5f);
  NFilter::recursiveSmoothX(expected2, 1.5f);
  NFilter::recursiveSmoothY(expected2, 1.5f);
  CTensor<float> f1(original1), f2(original2), flow;
  testing::internal::CaptureStdout();
  runFlowGPU(f1, f2, flow, 1.5f, 30, 300, 5, 0.95f, 1, 1);
  testing::internal::GetCapturedStdout();
  EXPECT_TRUE(identical(f1, expected1));
  EXPECT_TRUE(identical(f2, expected2));
}

TEST(FlowPipeline, TimingLinesAccumulateOverRuns) {
  CTensor<float> f1 = randomFrame(12, 10, 7), f2 = randomFrame(12, 10, 8), forward, backward;
  testing::internal::CaptureStdout();
  vemo::vemo(f1, f2, forward, backward, 0.8f, 30, 300, 5, 0.95f, 1, 1);
  vemo::vemo(f1, f2, forward, backward);
  const std::string out = testing::internal::GetCapturedStdout();
  // Four runs, four blocks; no accumulator ever goes down.
  const auto blocks = timingBlocks(out);
  ASSERT_EQ(blocks.size(), 4u) << out;
  for (size_t b = 1; b < blocks.size(); ++b)
    for (int i = 0; i < 5; ++i) EXPECT_GE(blocks[b][i], blocks[b - 1][i]) << b << " " << i;
  EXPECT_GT(blocks.back()[4], 0.0);
}
