// The whole method on the smallest frames a user can hand it: too small for
// a pyramid or for matching (a finite flow of the right size), and just
// large enough for one grid point row of matches.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "driver/run_flow.h"
#include "image/synthetic.h"

namespace {

struct MethodRun {
  CTensor<float> flow;
  std::string out;
};

MethodRun runWholeMethod(int width, int height) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(width, height, 1.0f, 0.5f, 11, f1, f2, truth);
  MethodRun run;
  testing::internal::CaptureStdout();
  runFlowGPU(f1, f2, run.flow, 0.8f, 30, 300, 5, 0.95f, 5, 10);
  run.out = testing::internal::GetCapturedStdout();
  return run;
}

}  // namespace

// Frames below 2 x 2 are refused by the pipeline (src/driver/pipeline_test.cpp).
TEST(SmallFrames, TinyFramesGiveAFiniteFlowOfTheirSize) {
  for (int size : {2, 24, 25}) {
    const MethodRun run = runWholeMethod(size, size);
    ASSERT_EQ(run.flow.xSize, size);
    ASSERT_EQ(run.flow.ySize, size);
    ASSERT_EQ(run.flow.zSize, 2);
    for (size_t i = 0; i < run.flow.elements(); ++i)
      ASSERT_TRUE(std::isfinite(run.flow.data[i])) << size << " x " << size << " element " << i;
    EXPECT_NE(run.out.find("Total time = "), std::string::npos);
    // 24 pixels leave no room for a descriptor window: no grid points. At 25
    // there is one row and one column of them.
    if (size > 2) {
      const std::string grid = size == 24 ? "0 0 24 24\n" : "1 1 25 25\n";
      EXPECT_NE(run.out.find(grid), std::string::npos) << run.out;
    }
  }
}
