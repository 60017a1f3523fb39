#include "variational/pyramid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

TEST(Pyramid, DefaultFrameHas67ScalesDownTo21x16) {
  EXPECT_EQ(vemo::pyramidScaleCount(480, 640, 0.95f), 67);
  const vemo::LevelSize c = vemo::pyramidLevelSize(67, 480, 640, 0.95f);
  EXPECT_EQ(c.width, 21);
  EXPECT_EQ(c.height, 16);
  // Passes below zero run at full size; their "previous" size is one step down.
  const vemo::LevelSize extra = vemo::pyramidLevelSize(-3, 480, 640, 0.95f);
  EXPECT_EQ(extra.width, 640);
  const vemo::LevelSize prev = vemo::pyramidPreviousSize(-3, 480, 640, 0.95f);
  EXPECT_EQ(prev.width, 608);
  EXPECT_EQ(prev.height, 456);
  EXPECT_FALSE(vemo::pyramidLevelIsDegenerate(-3, 480, 640, 0.95f));
  // ln(15/480) / ln(0.5) is 5 in exact arithmetic; ln(0.5) taken in single
  // precision is slightly larger in magnitude, so the quotient truncates to 4.
  EXPECT_EQ(vemo::pyramidScaleCount(480, 640, 0.5f), 4);
}

TEST(Pyramid, SmallFramesHaveNoScalesAndRepeatedSizesAreDegenerate) {
  EXPECT_EQ(vemo::pyramidScaleCount(14, 640, 0.95f), 0);
  EXPECT_EQ(vemo::pyramidScaleCount(15, 15, 0.95f), 0);
  // 20 x 20 at eta 0.97: level 0 is 20, level 1 ceil(19.4) = 20 -> skipped;
  // level 3 ceil(18.25) = 19 against level 4 ceil(17.71) = 18 -> processed.
  EXPECT_TRUE(vemo::pyramidLevelIsDegenerate(0, 20, 20, 0.97f));
  EXPECT_FALSE(vemo::pyramidLevelIsDegenerate(3, 20, 20, 0.97f));
  EXPECT_EQ(vemo::pyramidLevelSize(3, 20, 20, 0.97f).width, 19);
  // A tiny frame: even the full-size passes repeat the next coarser size.
  EXPECT_TRUE(vemo::pyramidLevelIsDegenerate(-1, 10, 10, 0.95f));
  // Only one dimension repeating is not degenerate.
  EXPECT_FALSE(vemo::pyramidLevelIsDegenerate(0, 10, 100, 0.95f));
}

TEST(Pyramid, FactorsOutsideTheUnitIntervalBuildNoPyramidAndOneIsRefused) {
  // Only the full-size passes: no scale, and never a degenerate pass, even
  // for a tiny frame (above 1 the formula alone would give it levels larger
  // than the frame) or a factor whose coarser size overflows an int.
  for (float eta : {0.0f, -0.5f, 1.5f, 1e30f, -1e30f}) {
    EXPECT_EQ(vemo::pyramidScaleCount(480, 640, eta), 0) << eta;
    EXPECT_EQ(vemo::pyramidScaleCount(4, 6, eta), 0) << eta;
    EXPECT_FALSE(vemo::pyramidLevelIsDegenerate(-2, 4, 6, eta)) << eta;
    EXPECT_EQ(vemo::pyramidLevelSize(0, 480, 640, eta).width, 640) << eta;
  }
  EXPECT_THROW(vemo::pyramidScaleCount(480, 640, 1.0f), std::invalid_argument);
  EXPECT_THROW(vemo::pyramidScaleCount(480, 640, NAN), std::invalid_argument);
  EXPECT_THROW(vemo::pyramidScaleCount(0, 640, 0.95f), std::invalid_argument);
}
