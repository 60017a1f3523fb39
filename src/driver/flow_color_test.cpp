#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "driver/optic_flow.h"
#include "image/exceptions.h"

namespace {

struct Rgb {
  float r, g, b;
};

Rgb colour(float x, float y) {
  Rgb c{-1, -1, -1};
  COpticFlow::cartesianToRGB(x, y, c.r, c.g, c.b);
  return c;
}

void expectRgb(const Rgb& c, float r, float g, float b, const char* what) {
  EXPECT_EQ(c.r, r) << what;
  EXPECT_EQ(c.g, g) << what;
  EXPECT_EQ(c.b, b) << what;
}

}  // namespace

TEST(ColourWheel, SectorsBrightnessAndNaN) {
  expectRgb(colour(1, 0), 255, 0, 0, "(1,0): red, start of the first sector");
  expectRgb(colour(0, 1), 64, 64, 255, "(0,1): dimmed blue, start of the third sector");
  expectRgb(colour(-1, 0), 0, 255, 0, "(-1,0): green, start of the fifth sector");
  // (0,-1): 1.5 pi rounds just below 3/4 pi after halving, so this is the
  // very end of the fifth sector, not the start of the sixth.
  expectRgb(colour(0, -1), 254, 255, 0, "(0,-1): yellow");
  expectRgb(colour(0, 0), 0, 0, 0, "zero vector: black");
  // Half way through the first sector (angle pi/8): half way to magenta.
  const float a = static_cast<float>(M_PI / 8);
  expectRgb(colour(std::cos(a), std::sin(a)), 255, 0, 127, "angle pi/8");
  // Half way through the fifth sector (angle 5 pi/4), which is twice as wide.
  expectRgb(colour(-1, -1), 127, 255, 0, "angle 5 pi/4");
  // Just below the full circle: the last sector reaches red again.
  const Rgb nearlyRed = colour(1, -1e-6f);
  EXPECT_EQ(nearlyRed.r, 255);
  EXPECT_LE(nearlyRed.g, 1);
  EXPECT_EQ(nearlyRed.b, 0);
  // Brightness follows the length up to one and truncates; NaN is black.
  expectRgb(colour(0.5f, 0), 127, 0, 0, "half length: 127.5 truncated");
  expectRgb(colour(40, 0), 255, 0, 0, "long vectors saturate");
  expectRgb(colour(std::numeric_limits<float>::quiet_NaN(), 1), 0, 0, 0, "NaN gives black, not garbage");
}

TEST(FlowToImage, ScalesByFactorAndFillsPlanarImageOfFlowSize) {
  // factor 8: a vector of length 8 * 2 sqrt(2) reaches full brightness.
  CTensor<float> flow(3, 1, 2, 0.0f);
  flow.data[0] = 100;                                    // far right: red
  flow.data[1] = -100;                                   // far left: green
  flow.data[2] = static_cast<float>(4 * 2 * M_SQRT2);    // half of full length, right
  CTensor<float> image(7, 7, 1, 3.0f);
  COpticFlow::flowToImage(flow, image, 8.0f);
  ASSERT_EQ(image.xSize, 3);
  ASSERT_EQ(image.ySize, 1);
  ASSERT_EQ(image.zSize, 3);
  const float expected[9] = {255, 0, 127, 0, 255, 0, 0, 0, 0};  // R plane, G plane, B plane
  for (int i = 0; i < 9; ++i) EXPECT_EQ(image.data[i], expected[i]) << i;

  // An empty field gives an empty image; a one-plane field is refused.
  CTensor<float> empty;
  COpticFlow::flowToImage(empty, image, 8.0f);
  EXPECT_EQ(image.data, nullptr);
  EXPECT_EQ(image.zSize, 3);
  CTensor<float> onePlane(2, 2, 1, 0.0f);
  testing::internal::CaptureStderr();
  EXPECT_THROW(COpticFlow::flowToImage(onePlane, image, 8.0f), ETensorIncompatibleSize);
  EXPECT_NE(testing::internal::GetCapturedStderr(), "");
}
