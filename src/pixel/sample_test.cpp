#include "pixel/sample.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

// Texture-style reads must land on an edge texel for any coordinate, however
// far outside or non-finite (a wild flow vector must not turn into an
// overflowing int conversion or an out-of-bounds read).
TEST(TextureSample, FarAndNonFiniteCoordinatesClampToEdgeTexels) {
  // 3 x 2 plane with pitch 4; the padding column holds NaN.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  const float plane[8] = {1, 2, 3, nan, 4, 5, 6, nan};
  EXPECT_EQ(vemo::texFetchPoint(plane, 2, 3, 4, 1.5f, 1.5f), 5.0f);
  EXPECT_EQ(vemo::texFetchPoint(plane, 2, 3, 4, 2.99f, 0.0f), 3.0f);
  EXPECT_EQ(vemo::texFetchPoint(plane, 2, 3, 4, 1e30f, 1e30f), 6.0f);
  EXPECT_EQ(vemo::texFetchPoint(plane, 2, 3, 4, -1e30f, -inf), 1.0f);
  EXPECT_EQ(vemo::texFetchLinear(plane, 2, 3, 4, 1e30f, -1e30f), 3.0f);
  EXPECT_EQ(vemo::texFetchLinear(plane, 2, 3, 4, -inf, inf), 4.0f);
  EXPECT_FALSE(std::isnan(vemo::texFetchLinear(plane, 2, 3, 4, nan, nan)));
  // Linear weights between texel centres, and clamping half a texel out.
  EXPECT_FLOAT_EQ(vemo::texFetchLinear(plane, 2, 3, 4, 1.0f, 0.5f), 1.5f);
  EXPECT_FLOAT_EQ(vemo::texFetchLinear(plane, 2, 3, 4, 2.0f, 1.0f), 4.0f);  // mean of 2, 3, 5, 6
  EXPECT_EQ(vemo::texFetchLinear(plane, 2, 3, 4, 3.4f, 0.5f), 3.0f);  // never the padding
  EXPECT_EQ(vemo::texFetchLinear(plane, 2, 3, 4, 0.2f, 2.4f), 4.0f);
}
