#include <gtest/gtest.h>

#include <cmath>
#include <limits>

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

// Pixels whose reference has a component >= 1e9 (or +inf) are skipped but
// count in the divisor; only the direction is measured, and it wraps around
// the circle; NaN has no direction. Mismatched fields are refused instead of
// read out of bounds.
TEST(AverageAngularError, UnknownPixelsCountInTheDivisorAndDirectionsWrap) {
  EXPECT_NEAR(aae(row({{1, 0}, {1, 0}}), row({{0, 1}, {1e9f, 0}})), 45.0f, 1e-3f);
  EXPECT_NEAR(aae(row({{1, 0}, {1, 0}}), row({{0, 1}, {0, 2e9f}})), 45.0f, 1e-3f);
  EXPECT_NEAR(aae(row({{1, 0}}), row({{-2e9f, 0}})), 180.0f, 1e-3f);  // a real vector
  EXPECT_EQ(aae(row({{1, 2}, {3, 4}}), row({{1e9f, 1e9f}, {5e9f, 0}})), 0.0f);
  EXPECT_EQ(aae(row({{1, 0}, {0, 1}}), row({{1, 0}, {0, INFINITY}})), 0.0f);
  EXPECT_EQ(aae(row({{2, 0}}), row({{5, 0}})), 0.0f);
  EXPECT_NEAR(aae(row({{-1, 0.001f}}), row({{-1, -0.001f}})), 0.1146f, 1e-3f);  // not 359.9
  EXPECT_TRUE(std::isnan(aae(row({{1, 0}, {0, 1}}), row({{0, std::nanf("")}, {1, 0}}))));

  testing::internal::CaptureStderr();
  EXPECT_THROW(aae(row({{1, 0}, {1, 0}}), row({{1, 0}})), ETensorIncompatibleSize);
  EXPECT_THROW(aae(row({{1, 0}}), CTensor<float>(1, 1, 1, 0.0f)), ETensorIncompatibleSize);
  CTensor<float> tall(1, 2, 2, 0.0f);
  CTensor<float> shortRef = row({{1, 0}});
  EXPECT_THROW(COpticFlow::angularError(tall, shortRef), ETensorIncompatibleSize);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("ETensorIncompatibleSize"), std::string::npos);
}

TEST(SpaceTimeAngularError, KnownAnglesSkipRuleAndOwnReferenceWidth) {
  CTensor<float> flow = row({{1, 0}, {3, 4}});
  // (1,0) against (0,1): cos = 1 / 2, 60 degrees. Pixel 1 skipped (|ru| > 1e9),
  // so the average is over one pixel.
  CTensor<float> reference = row({{0, 1}, {-2e9f, 0}});
  EXPECT_NEAR(COpticFlow::angularError(flow, reference), 60.0f, 1e-4f);

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
