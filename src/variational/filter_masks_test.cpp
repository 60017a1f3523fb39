#include "variational/filter_masks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

TEST(FilterMasks, LengthRuleTruncatesSixSigmaAndRoundsUpToOdd) {
  const float sigmas[] = {0.8f, 1.0f, 1.5f, 2.0f, 0.5f, 0.1f, 4.0f};
  const int lengths[] = {5, 7, 9, 13, 3, 1, 25};
  for (int k = 0; k < 7; ++k) {
    int len = -1;
    const std::vector<float> g = flowcore::GaussianFilterCreate(sigmas[k], len);
    EXPECT_EQ(len, lengths[k]) << sigmas[k];
    EXPECT_EQ((int)g.size(), len);
    const std::vector<float> d = flowcore::GaussianDerivativeFilterCreate(sigmas[k], len);
    EXPECT_EQ(len, lengths[k]) << sigmas[k];
    EXPECT_EQ((int)d.size(), len);
  }
}

TEST(FilterMasks, SmoothingIsSymmetricUnitSumAndDerivativeIsSignedAntisymmetric) {
  int len = 0;
  const std::vector<float> g = flowcore::GaussianFilterCreate(1.5f, len);
  float sum = 0.0f;
  for (int i = 0; i < len; ++i) {
    EXPECT_EQ(g[i], g[len - 1 - i]);
    sum += g[i];
    if (i > 0 && i <= len / 2) {
      EXPECT_GT(g[i], g[i - 1]);  // rises towards the centre
    }
  }
  EXPECT_NEAR(sum, 1.0f, 1e-6f);
  const std::vector<float> d = flowcore::GaussianDerivativeFilterCreate(1.5f, len);
  float abs = 0.0f, response = 0.0f;
  for (int i = 0; i < len; ++i) {
    EXPECT_EQ(d[i], -d[len - 1 - i]);
    abs += std::fabs(d[i]);
    response += d[i] * (float)(i - len / 2);  // correlation with a rising ramp
  }
  EXPECT_EQ(d[len / 2], 0.0f);
  EXPECT_LT(d[0], 0.0f);
  EXPECT_NEAR(abs, 1.0f, 1e-6f);
  EXPECT_GT(response, 0.0f);
  // Unnormalised shape of the first taps: (i - c) exp(-(i - c)^2 / (2 sigma^2)).
  EXPECT_NEAR(d[0] / d[1], (-4.0 * std::exp(-16.0 / 4.5)) / (-3.0 * std::exp(-9.0 / 4.5)), 1e-5);
}

TEST(FilterMasks, SingleTapMasksAndNonPositiveSigma) {
  int len = 0;
  const std::vector<float> g = flowcore::GaussianFilterCreate(0.1f, len);
  ASSERT_EQ(len, 1);
  EXPECT_EQ(g[0], 1.0f);
  const std::vector<float> d = flowcore::GaussianDerivativeFilterCreate(0.1f, len);
  ASSERT_EQ(len, 1);
  EXPECT_TRUE(std::isnan(d[0]));  // 0 divided by a zero absolute sum
  EXPECT_THROW(flowcore::GaussianFilterCreate(0.0f, len), std::invalid_argument);
  EXPECT_THROW(flowcore::GaussianDerivativeFilterCreate(-1.0f, len), std::invalid_argument);
  EXPECT_THROW(flowcore::GaussianFilterCreate(NAN, len), std::invalid_argument);
}
