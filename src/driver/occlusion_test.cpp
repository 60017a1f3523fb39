// Forward-backward consistency masks.
#include "driver/occlusion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "image/exceptions.h"
#include "support/flow_fields.h"

namespace {

using vemotest::constantFlow;

}  // namespace

TEST(OcclusionMask, DisagreementIsMeasuredAtTheTargetWithAToleranceThatGrowsWithMotion) {
  // Forward 3 px right. Backward: cancels on the left half of the frame, is
  // zero on the right half. Pixels landing on the right half or outside the
  // frame are occluded; the check must read the backward flow at the target,
  // not at the pixel.
  CTensor<float> forward = constantFlow(20, 3, 3.0f, 0.0f);
  CTensor<float> backward = constantFlow(20, 3, -3.0f, 0.0f);
  for (int y = 0; y < 3; ++y)
    for (int x = 10; x < 20; ++x) backward(x, y, 0) = 0.0f;
  CTensor<float> mask = occlusionMask(forward, backward);
  for (int x = 0; x < 20; ++x) EXPECT_EQ(mask(x, 1, 0), x + 3 >= 10 ? 255.0f : 0.0f) << x;
  // A fractional target is sampled bilinearly: x = 6 lands on 9.5, halfway
  // between -3 and 0, so b = -1.5 and |f + b|^2 = 4 exceeds the tolerance
  // (the nearest sample, -3, would have passed).
  forward = constantFlow(20, 3, 3.5f, 0.0f);
  mask = occlusionMask(forward, backward);
  EXPECT_EQ(mask(6, 1, 0), 255.0f);

  // Large motion: 40 px forward and -39 px back differ by 1 px, within the
  // tolerance 0.01 * (1600 + 1521) + 0.5; the same 1 px on a 2 px motion is not.
  forward = constantFlow(60, 2, 40.0f, 0.0f);
  backward = constantFlow(60, 2, -39.0f, 0.0f);
  EXPECT_EQ(occlusionMask(forward, backward)(0, 0, 0), 0.0f);
  forward = constantFlow(60, 2, 2.0f, 0.0f);
  backward = constantFlow(60, 2, -1.0f, 0.0f);
  EXPECT_EQ(occlusionMask(forward, backward)(0, 0, 0), 255.0f);
}

TEST(OcclusionMask, NonFiniteVectorsAreOccludedAndMismatchedFieldsRefused) {
  CTensor<float> forward = constantFlow(4, 4, 0.0f, 0.0f), backward = constantFlow(4, 4, 0.0f, 0.0f);
  forward(1, 1, 0) = std::numeric_limits<float>::quiet_NaN();
  forward(2, 2, 1) = std::numeric_limits<float>::infinity();
  backward(3, 3, 0) = std::numeric_limits<float>::quiet_NaN();
  const CTensor<float> mask = occlusionMask(forward, backward);
  EXPECT_EQ(mask(1, 1, 0), 255.0f);
  EXPECT_EQ(mask(2, 2, 0), 255.0f);
  EXPECT_EQ(mask(3, 3, 0), 255.0f);
  EXPECT_EQ(mask(0, 0, 0), 0.0f);

  testing::internal::CaptureStderr();
  EXPECT_THROW(occlusionMask(constantFlow(4, 4, 0, 0), constantFlow(4, 5, 0, 0)), ETensorIncompatibleSize);
  EXPECT_THROW(occlusionMask(CTensor<float>(4, 4, 1, 0.0f), CTensor<float>(4, 4, 1, 0.0f)), ETensorIncompatibleSize);
  testing::internal::GetCapturedStderr();
}
