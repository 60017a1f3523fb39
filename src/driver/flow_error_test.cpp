#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "driver/optic_flow.h"
#include "driver/vemo.h"
#include "image/exceptions.h"

namespace {

// A W x 1 field from (u, v) pairs.
CTensor<float> row(std::initializer_list<std::pair<float, float>> vectors) {
  CTensor<float> t(static_cast<int>(vectors.size()), 1, 2);
  int i = 0;
  for (const auto& p : vectors) {
    t.data[i] = p.first;
    t.data[t.xSize + i] = p.second;
    ++i;
  }
  return t;
}

}  // namespace

TEST(AverageAngularError, UnknownPixelsAreSkippedButCountInTheDivisor) {
  // 90 degrees at one pixel, the other unknown: 45 (not 90) over two pixels.
  EXPECT_NEAR(aae(row({{1, 0}, {1, 0}}), row({{0, 1}, {1e9f, 0}})), 45.0f, 1e-3f);
  EXPECT_NEAR(aae(row({{1, 0}, {1, 0}}), row({{0, 1}, {0, 2e9f}})), 45.0f, 1e-3f);
  // Only components >= 1e9 mark unknown: a large negative one is a real vector.
  EXPECT_NEAR(aae(row({{1, 0}}), row({{-2e9f, 0}})), 180.0f, 1e-3f);
  // Every pixel unknown: 0.
  EXPECT_EQ(aae(row({{1, 2}, {3, 4}}), row({{1e9f, 1e9f}, {5e9f, 0}})), 0.0f);
}

TEST(AverageAngularError, MeasuresDirectionOnlyAndWrapsAroundTheCircle) {
  EXPECT_EQ(aae(row({{2, 0}}), row({{5, 0}})), 0.0f);
  // Directions just either side of the negative x axis differ by about
  // 0.1146 degrees, not 359.9.
  EXPECT_NEAR(aae(row({{-1, 0.001f}}), row({{-1, -0.001f}})), 0.1146f, 1e-3f);
  EXPECT_NEAR(aae(row({{-1, -0.001f}}), row({{-1, 0.001f}})), 0.1146f, 1e-3f);
  // +inf is unknown flow (skipped, counted in n); NaN is not: it has no
  // direction, and the error is NaN as well.
  EXPECT_EQ(aae(row({{1, 0}, {0, 1}}), row({{1, 0}, {0, INFINITY}})), 0.0f);
  EXPECT_TRUE(std::isnan(aae(row({{1, 0}, {0, 1}}), row({{0, std::nanf("")}, {1, 0}}))));
}

TEST(AverageAngularError, MismatchedFieldsAreRefusedInsteadOfReadOutOfBounds) {
  testing::internal::CaptureStderr();
  EXPECT_THROW(aae(row({{1, 0}, {1, 0}}), row({{1, 0}})), ETensorIncompatibleSize);
  EXPECT_THROW(aae(row({{1, 0}}), CTensor<float>(1, 1, 1, 0.0f)), ETensorIncompatibleSize);
  CTensor<float> tall(1, 2, 2, 0.0f);
  CTensor<float> shortRef = row({{1, 0}});
  EXPECT_THROW(COpticFlow::angularError(tall, shortRef), ETensorIncompatibleSize);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("ETensorIncompatibleSize"),
            std::string::npos);
}

TEST(SpaceTimeAngularError, KnownAnglesSkipRuleAndOwnReferenceWidth) {
  CTensor<float> flow = row({{1, 0}, {3, 4}});
  // (1,0) against (0,1): cos = 1 / 2, 60 degrees. Pixel 1 skipped (|ru| > 1e9),
  // so the average is over one pixel.
  CTensor<float> reference = row({{0, 1}, {-2e9f, 0}});
  EXPECT_NEAR(COpticFlow::angularError(flow, reference), 60.0f, 1e-4f);
  // 1e9 itself is known here (unlike in aae): (3,4) against (1e9, 0).
  CTensor<float> edge = row({{0, 1}, {1e9f, 0}});
  const float expected =
      (60.0f + static_cast<float>(std::acos((3e9 + 1) / std::sqrt((1e18 + 1) * 26.0)) *
                                  57.29577866666166)) / 2;
  EXPECT_NEAR(COpticFlow::angularError(flow, edge), expected, 1e-3f);

  // A larger reference is addressed with its own width and height.
  CTensor<float> single = row({{1, 0}});
  CTensor<float> big(2, 2, 2, 7.0f);
  big.data[0] = 0;  // ru(0,0)
  big.data[4] = 1;  // rv(0,0)
  EXPECT_NEAR(COpticFlow::angularError(single, big), 60.0f, 1e-4f);

  // Nothing counted (NaN and huge references): not a number.
  CTensor<float> none = row({{std::nanf(""), 0}, {0, 5e9f}});
  EXPECT_TRUE(std::isnan(COpticFlow::angularError(flow, none)));
  CTensor<float> noRows;
  EXPECT_TRUE(std::isnan(COpticFlow::angularError(noRows, reference)));
}

TEST(SpaceTimeAngularError, FlowAgainstItselfIsZeroUpToRounding) {
  std::mt19937 rng(3);
  CTensor<float> flow(17, 9, 2);
  for (size_t i = 0; i < flow.elements(); ++i) flow.data[i] = (rng() % 2001) / 100.0f - 10.0f;
  CTensor<float> same(flow);
  EXPECT_LT(COpticFlow::angularError(flow, same), 0.05f);
  EXPECT_EQ(aae(flow, same), 0.0f);
}
