#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "image/exceptions.h"
#include "image/filter.h"

// Applies `mask` at position x of samples f(0), f(1), ... with no border.
template <typename F>
double applyAt(const CFilter<float>& mask, int x, F f) {
  double sum = 0;
  for (int k = 0; k < mask.size; ++k) sum += mask.data[k] * f(x + k - mask.offset);
  return sum;
}

// Every derivative mask must differentiate a ramp exactly and a parabola
// exactly at the sample (odd sizes) or half a sample later (even sizes): a
// wrong entry, sign or offset in the table breaks one of these. Sizes
// outside the table print the size asked for.
TEST(HostFilterMasks, DerivativeTableDifferentiatesAtTheRightPosition) {
  for (int size = 2; size <= 10; ++size) {
    SCOPED_TRACE(size);
    const CDerivative<float> d(size);
    ASSERT_EQ(d.size, size);
    EXPECT_NEAR(applyAt(d, 20, [](int j) { return 3.0 * j + 1; }), 3.0, 1e-5);
    const double at = (size % 2 == 1) ? 20.0 : 20.5;
    EXPECT_NEAR(applyAt(d, 20, [](int j) { return 0.5 * j * j; }), at, 1e-4);
  }
  for (int size : {1, 11}) {
    testing::internal::CaptureStderr();
    EXPECT_THROW(CDerivative<float> d(size), EFilterNotAvailable);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Exception EFilterNotAvailable: Mask size: " + std::to_string(size) + "\n");
  }
}

// The Gaussian's radius rounds sigma * precision up; the mask is symmetric
// and normalised; no sigma or no precision gives the identity.
TEST(HostFilterMasks, SmoothMaskHasCeiledRadiusAndUnitSum) {
  const CSmooth<float> identity(2.0f, 0.0f), noSigma(0.0f, 3.0f);
  ASSERT_EQ(identity.size, 1);
  EXPECT_EQ(identity.data[0], 1.0f);
  ASSERT_EQ(noSigma.size, 1);
  EXPECT_EQ(noSigma.data[0], 1.0f);
  const CSmooth<float> g(1.3f, 3.0f);  // ceil(3.9) = 4
  ASSERT_EQ(g.size, 9);
  ASSERT_EQ(g.offset, 4);
  double total = 0;
  for (int k = 0; k < 9; ++k) {
    total += g.data[k];
    EXPECT_EQ(g.data[k], g.data[8 - k]);
  }
  EXPECT_NEAR(total, 1.0, 1e-6);
  EXPECT_GT(g.data[4], g.data[5]);

  testing::internal::CaptureStderr();
  EXPECT_THROW(CSmooth<float>(1e30f, 3.0f), std::invalid_argument);
  EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}
