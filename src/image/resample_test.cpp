#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "image/matrix.h"

namespace {

CMatrix<float> row(std::initializer_list<float> values) {
  CMatrix<float> m(static_cast<int>(values.size()), 1);
  int i = 0;
  for (float v : values) m.data[i++] = v;
  return m;
}

// Expects `resize` to refuse with a message on standard error mentioning
// `needle`, leaving the matrix as it was.
template <typename Resize>
void expectRefused(CMatrix<float>& m, Resize resize, const std::string& needle) {
  const int w = m.xSize, h = m.ySize;
  testing::internal::CaptureStderr();
  EXPECT_THROW(resize(m), std::invalid_argument) << needle;
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find(needle), std::string::npos) << err;
  EXPECT_EQ(m.xSize, w);
  EXPECT_EQ(m.ySize, h);
}

}  // namespace

// Sample positions are pixel centres: a target sample before the first
// source centre takes the first value, the last one is clamped. Faults in
// the half-pixel offset, the negative-position rule or the clamp change
// these values.
TEST(Resample, BilinearUsesPixelCentresAndClampsAtTheEdges) {
  CMatrix<float> m = row({0.0f, 4.0f});
  m.upsampleBilinear(4, 1);
  ASSERT_EQ(m.xSize, 4);
  EXPECT_EQ(m(0, 0), 0.0f);
  EXPECT_EQ(m(1, 0), 1.0f);
  EXPECT_EQ(m(2, 0), 3.0f);
  EXPECT_EQ(m(3, 0), 4.0f);

  CMatrix<float> one(1, 1, 2.5f);
  one.upsampleBilinear(7, 5);
  ASSERT_EQ(one.elements(), 35u);
  for (int i = 0; i < 35; ++i) EXPECT_EQ(one.data[i], 2.5f);
  expectRefused(one, [](CMatrix<float>& m) { m.upsampleBilinear(0, 3); }, "not positive");
  CMatrix<float> empty;
  expectRefused(empty, [](CMatrix<float>& m) { m.upsampleBilinear(2, 2); }, "empty");
}

// Area averaging: a non-integer factor splits the straddling pixel between
// the two cells, along rows and along columns alike, and keeps the mean of
// the line. Growing is refused instead of being undefined.
TEST(Resample, AreaDownsamplingSplitsStraddlingPixels) {
  CMatrix<float> r = row({1, 2, 3, 4, 5});  // cells [0, 2.5) and [2.5, 5)
  r.downsample(2, 1);
  EXPECT_FLOAT_EQ(r(0, 0), (1 + 2 + 1.5f) / 2.5f);
  EXPECT_FLOAT_EQ(r(1, 0), (1.5f + 4 + 5) / 2.5f);
  CMatrix<float> c(1, 5);
  for (int i = 0; i < 5; ++i) c.data[i] = static_cast<float>(i + 1);
  c.downsample(1, 2);
  EXPECT_FLOAT_EQ(c.data[0], 1.8f);
  EXPECT_FLOAT_EQ(c.data[1], 4.2f);
  CMatrix<float> seven = row({3, 1, 4, 1, 5, 9, 2});
  seven.downsample(3, 1);
  EXPECT_NEAR((seven.data[0] + seven.data[1] + seven.data[2]) / 3.0f, 25.0f / 7.0f, 1e-5f);

  expectRefused(seven, [](CMatrix<float>& m) { m.downsample(4, 1); }, "larger");
  expectRefused(seven, [](CMatrix<float>& m) { m.downsample(2, 0); }, "not positive");
}

// Weighted splatting: cells without weight become 0, a constant stays
// constant wherever weight lands, a pixel whose splat partly leaves the
// target still feeds the cell inside, and non-positive weights are ignored.
TEST(Resample, WeightedDownsamplingNormalisesByLandedWeight) {
  CMatrix<float> constant(5, 5, 7.0f);
  CMatrix<float> g(5, 5);
  for (int i = 0; i < 25; ++i) g.data[i] = 0.5f + (i % 3);
  constant.downsample(3, 2, g);
  for (int i = 0; i < 6; ++i) EXPECT_FLOAT_EQ(constant.data[i], 7.0f) << i;

  // Pixel (3, 3) lands at (1.5, 1.5); only cell (1, 1) of its four lies
  // inside the target.
  CMatrix<float> sparse(4, 4, 100.0f);
  CMatrix<float> w(4, 4, 0.0f);
  w(3, 3) = 2.0f;
  sparse(3, 3) = 5.0f;
  w(0, 0) = -1.0f;
  sparse.downsample(2, 2, w);
  EXPECT_EQ(sparse(0, 0), 0.0f);
  EXPECT_EQ(sparse(1, 0), 0.0f);
  EXPECT_EQ(sparse(0, 1), 0.0f);
  EXPECT_FLOAT_EQ(sparse(1, 1), 5.0f);

  CMatrix<float> wrong(3, 3, 1.0f);
  CMatrix<float> target(4, 4, 1.0f);
  expectRefused(target, [&](CMatrix<float>& m) { m.downsample(2, 2, wrong); }, "do not match");
}
