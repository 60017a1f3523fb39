#include "method/filter_masks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

// Lengths truncate six sigma and round up to odd; the smoothing mask is
// symmetric with unit sum, the derivative mask antisymmetric with unit
// absolute sum and negative taps first (it correlates a rising ramp to a
// positive value); a single-tap derivative is 0 / 0; sigmas that are not
// positive finite numbers are refused.
TEST(FilterMasks, LengthsShapesAndRefusedSigmas) {
  const float sigmas[] = {0.8f, 1.0f, 2.0f, 0.1f};
  const int lengths[] = {5, 7, 13, 1};
  for (int k = 0; k < 4; ++k) {
    int len = -1;
    EXPECT_EQ((int)vemo::GaussianFilterCreate(sigmas[k], len).size(), lengths[k]) << sigmas[k];
    EXPECT_EQ(len, lengths[k]) << sigmas[k];
    EXPECT_EQ((int)vemo::GaussianDerivativeFilterCreate(sigmas[k], len).size(), lengths[k]) << sigmas[k];
  }

  int len = 0;
  const std::vector<float> g = vemo::GaussianFilterCreate(1.5f, len);
  const std::vector<float> d = vemo::GaussianDerivativeFilterCreate(1.5f, len);
  float sum = 0.0f, abs = 0.0f;
  for (int i = 0; i < len; ++i) {
    EXPECT_EQ(g[i], g[len - 1 - i]);
    EXPECT_EQ(d[i], -d[len - 1 - i]);
    sum += g[i];
    abs += std::fabs(d[i]);
  }
  EXPECT_NEAR(sum, 1.0f, 1e-6f);
  EXPECT_NEAR(abs, 1.0f, 1e-6f);
  EXPECT_GT(g[len / 2], g[len / 2 - 1]);
  EXPECT_LT(d[0], 0.0f);

  EXPECT_TRUE(std::isnan(vemo::GaussianDerivativeFilterCreate(0.1f, len)[0]));
  EXPECT_THROW(vemo::GaussianFilterCreate(0.0f, len), std::invalid_argument);
  EXPECT_THROW(vemo::GaussianDerivativeFilterCreate(-1.0f, len), std::invalid_argument);
  EXPECT_THROW(vemo::GaussianFilterCreate(NAN, len), std::invalid_argument);
}
