#include <gtest/gtest.h>

#include <cmath>
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
// wrong entry, sign or offset in the table breaks one of these.
TEST(HostFilterMasks, DerivativeTableDifferentiatesAtTheRightPosition) {
  for (int size = 2; size <= 10; ++size) {
    SCOPED_TRACE(size);
    const CDerivative<float> d(size);
    ASSERT_EQ(d.size, size);
    EXPECT_EQ(d.offset, (size - 1) / 2);
    double total = 0;
    for (int k = 0; k < size; ++k) total += d.data[k];
    EXPECT_NEAR(total, 0.0, 1e-6);
    EXPECT_NEAR(applyAt(d, 20, [](int j) { return 3.0 * j + 1; }), 3.0, 1e-5);
    const double at = (size % 2 == 1) ? 20.0 : 20.5;
    EXPECT_NEAR(applyAt(d, 20, [](int j) { return 0.5 * j * j; }), at, 1e-4);
  }
}

TEST(HostFilterMasks, UnavailableDerivativeSizesPrintTheMaskSize) {
  for (int size : {1, 0, 11, -3}) {
    testing::internal::CaptureStderr();
    EXPECT_THROW(CDerivative<float> d(size), EFilterNotAvailable);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Exception EFilterNotAvailable: Mask size: " + std::to_string(size) + "\n");
  }
}

// The Gaussian's radius rounds sigma * precision up, the mask is symmetric,
// normalised, and its taps fall off as exp(-i^2 / (2 sigma^2)).
TEST(HostFilterMasks, SmoothMaskHasCeiledRadiusAndGaussianShape) {
  const CSmooth<float> identity(2.0f, 0.0f);
  ASSERT_EQ(identity.size, 1);
  EXPECT_EQ(identity.offset, 0);
  EXPECT_EQ(identity.data[0], 1.0f);
  const CSmooth<float> noSigma(0.0f, 3.0f);
  ASSERT_EQ(noSigma.size, 1);
  EXPECT_EQ(noSigma.data[0], 1.0f);

  const CSmooth<float> half(0.5f, 3.0f);  // ceil(1.5) = 2
  EXPECT_EQ(half.size, 5);
  EXPECT_EQ(half.offset, 2);

  const float sigma = 1.3f;
  const CSmooth<float> g(sigma, 3.0f);  // ceil(3.9) = 4
  ASSERT_EQ(g.size, 9);
  ASSERT_EQ(g.offset, 4);
  double total = 0;
  for (int k = 0; k < 9; ++k) {
    total += g.data[k];
    EXPECT_EQ(g.data[k], g.data[8 - k]);
  }
  EXPECT_NEAR(total, 1.0, 1e-6);
  for (int i = 1; i <= 4; ++i) {
    EXPECT_NEAR(g.data[4 + i] / g.data[4], std::exp(-i * i / (2.0 * sigma * sigma)), 1e-6);
  }
  // Unnormalised centre is 1 / (sqrt(2 pi) sigma); normalising a truncated
  // Gaussian can only raise it.
  EXPECT_GT(g.data[4], 1.0 / (std::sqrt(2 * M_PI) * sigma));

  testing::internal::CaptureStderr();
  EXPECT_THROW(CSmooth<float>(1e30f, 3.0f), std::invalid_argument);
  EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}
