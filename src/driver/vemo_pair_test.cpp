// The forward and backward flow of one call: the backward run works on the
// copies that the forward run has already presmoothed.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "driver/run_flow.h"
#include "driver/vemo.h"
#include "image/synthetic.h"

namespace {

bool identical(const CTensor<float>& a, const CTensor<float>& b) {
  return a.xSize == b.xSize && a.ySize == b.ySize && a.zSize == b.zSize &&
         std::memcmp(a.data, b.data, sizeof(float) * a.xSize * a.ySize * a.zSize) == 0;
}

TEST(VemoPair, BackwardFlowSeesFramesSmoothedTwiceWhileTheCallerFramesStayUntouched) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(40, 32, 1.5f, 0.5f, 17, f1, f2, truth);
  const CTensor<float> original1(f1), original2(f2);
  CTensor<float> forward, backward;
  ::testing::internal::CaptureStdout();
  vemo::vemo(f1, f2, forward, backward, 0.8f, 30.0f, 300.0f, 5.0f, 0.9f, 2, 5);

  // The same two runs by hand: a1, a2 are smoothed once by the first run,
  // and the second run smooths them again.
  CTensor<float> a1(original1), a2(original2), expectForward, expectBackward;
  runFlowGPU(a1, a2, expectForward, 0.8f, 30.0f, 300.0f, 5.0f, 0.9f, 2, 5);
  runFlowGPU(a2, a1, expectBackward, 0.8f, 30.0f, 300.0f, 5.0f, 0.9f, 2, 5);
  // Smoothed only once, the backward flow comes out different.
  CTensor<float> b1(original1), b2(original2), onceBackward;
  runFlowGPU(b2, b1, onceBackward, 0.8f, 30.0f, 300.0f, 5.0f, 0.9f, 2, 5);

  // Without parameters: no presmoothing and the method's defaults.
  CTensor<float> plainForward, plainBackward, expectPlain;
  vemo::vemo(f1, f2, plainForward, plainBackward);
  CTensor<float> c1(original1), c2(original2);
  runFlowGPU(c2, c1, expectPlain, 0.0f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10);
  ::testing::internal::GetCapturedStdout();

  EXPECT_TRUE(identical(f1, original1));
  EXPECT_TRUE(identical(f2, original2));
  EXPECT_TRUE(identical(forward, expectForward));
  EXPECT_TRUE(identical(backward, expectBackward));
  EXPECT_FALSE(identical(backward, onceBackward));
  EXPECT_TRUE(identical(plainBackward, expectPlain));
  EXPECT_TRUE(identical(c1, original1));  // sigma 0 leaves the frames as read
  // The backward flow points the other way.
  EXPECT_LT(backward(20, 16, 0), -1.0f);
  EXPECT_GT(forward(20, 16, 0), 1.0f);
}

}  // namespace
