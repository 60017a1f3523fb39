#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "image/matrix.h"
#include "image/tensor.h"

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

// Sample positions are pixel centres: a left target sample before the first
// source centre takes the first value, the right one is clamped to the last.
// A 1 x 1 source gives a constant at any size. Faults in the half-pixel
// offset, the negative-position rule or the clamp change these values.
TEST(Resample, BilinearUsesPixelCentresAndClampsAtTheEdges) {
  CMatrix<float> m = row({0.0f, 4.0f});
  m.upsampleBilinear(4, 1);
  ASSERT_EQ(m.xSize, 4);
  EXPECT_EQ(m(0, 0), 0.0f);
  EXPECT_EQ(m(1, 0), 1.0f);
  EXPECT_EQ(m(2, 0), 3.0f);
  EXPECT_EQ(m(3, 0), 4.0f);

  CMatrix<float> column(1, 2);
  column.data[0] = 0.0f;
  column.data[1] = 4.0f;
  column.upsampleBilinear(3, 4);
  for (int x = 0; x < 3; ++x) {
    EXPECT_EQ(column(x, 0), 0.0f);
    EXPECT_EQ(column(x, 1), 1.0f);
    EXPECT_EQ(column(x, 2), 3.0f);
    EXPECT_EQ(column(x, 3), 4.0f);
  }

  CMatrix<float> one(1, 1, 2.5f);
  one.upsampleBilinear(7, 5);
  ASSERT_EQ(one.elements(), 35u);
  for (int i = 0; i < 35; ++i) EXPECT_EQ(one.data[i], 2.5f);

  expectRefused(one, [](CMatrix<float>& m) { m.upsampleBilinear(0, 3); }, "not positive");
  CMatrix<float> empty;
  expectRefused(empty, [](CMatrix<float>& m) { m.upsampleBilinear(2, 2); }, "empty");
}

// Area averaging: integer factors give block means; a non-integer factor
// splits the straddling pixel between the two cells, along rows and along
// columns alike. Growing is refused instead of being undefined.
TEST(Resample, AreaDownsamplingAveragesBlocksAndSplitsStraddlingPixels) {
  CMatrix<float> m(4, 4);
  for (int i = 0; i < 16; ++i) m.data[i] = static_cast<float>(i);
  m.downsample(2, 2);
  ASSERT_EQ(m.xSize, 2);
  ASSERT_EQ(m.ySize, 2);
  EXPECT_FLOAT_EQ(m(0, 0), (0 + 1 + 4 + 5) / 4.0f);
  EXPECT_FLOAT_EQ(m(1, 0), (2 + 3 + 6 + 7) / 4.0f);
  EXPECT_FLOAT_EQ(m(0, 1), (8 + 9 + 12 + 13) / 4.0f);
  EXPECT_FLOAT_EQ(m(1, 1), (10 + 11 + 14 + 15) / 4.0f);

  // 5 -> 2: cells [0, 2.5) and [2.5, 5); pixel 2 goes half to each.
  CMatrix<float> r = row({1, 2, 3, 4, 5});
  r.downsample(2, 1);
  EXPECT_FLOAT_EQ(r(0, 0), (1 + 2 + 1.5f) / 2.5f);
  EXPECT_FLOAT_EQ(r(1, 0), (1.5f + 4 + 5) / 2.5f);
  CMatrix<float> c(1, 5);
  for (int i = 0; i < 5; ++i) c.data[i] = static_cast<float>(i + 1);
  c.downsample(1, 2);
  EXPECT_FLOAT_EQ(c.data[0], 1.8f);
  EXPECT_FLOAT_EQ(c.data[1], 4.2f);

  // 7 -> 3 keeps the mean of the line (no fraction lost or counted twice).
  CMatrix<float> seven = row({3, 1, 4, 1, 5, 9, 2});
  seven.downsample(3, 1);
  EXPECT_NEAR((seven.data[0] + seven.data[1] + seven.data[2]) / 3.0f, 25.0f / 7.0f, 1e-5f);
  EXPECT_FLOAT_EQ(seven.data[0], (3 + 1 + 4 / 3.0f) * 3.0f / 7.0f);

  CMatrix<float> same = row({1, 2, 3});
  same.downsample(3, 1);
  EXPECT_EQ(same(0, 0) + same(1, 0) * 10 + same(2, 0) * 100, 321.0f);

  expectRefused(same, [](CMatrix<float>& m) { m.downsample(4, 1); }, "larger");
  expectRefused(same, [](CMatrix<float>& m) { m.downsample(2, 0); }, "not positive");
}

// Weighted splatting: cells without weight become 0, a constant stays
// constant wherever weight lands, a pixel whose splat partly leaves the
// target still feeds the cells inside, and non-positive weights are ignored.
TEST(Resample, WeightedDownsamplingNormalisesByLandedWeight) {
  CMatrix<float> m(6, 4, 3.0f);
  CMatrix<float> zero(6, 4, 0.0f);
  m.downsample(3, 2, zero);
  ASSERT_EQ(m.elements(), 6u);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(m.data[i], 0.0f);
  EXPECT_EQ(zero.xSize, 6);  // weights are not resized

  CMatrix<float> constant(5, 5, 7.0f);
  CMatrix<float> g(5, 5);
  for (int i = 0; i < 25; ++i) g.data[i] = 0.5f + (i % 3);
  constant.downsample(3, 2, g);
  for (int i = 0; i < 6; ++i) EXPECT_FLOAT_EQ(constant.data[i], 7.0f) << i;

  // 4 x 4 -> 2 x 2: pixel (3, 3) lands at (1.5, 1.5); only cell (1, 1) of
  // its four lies inside the target. A negative weight elsewhere is ignored.
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

  // Pixel (1, 1) lands at (0.5, 0.5) and is shared by all four cells, the
  // values blend by their splatted weights.
  CMatrix<float> blend(4, 4, 0.0f);
  CMatrix<float> bw(4, 4, 0.0f);
  blend(1, 1) = 8.0f;
  bw(1, 1) = 1.0f;
  blend(2, 2) = 2.0f;
  bw(2, 2) = 3.0f;  // lands exactly on cell (1, 1)
  blend.downsample(2, 2, bw);
  EXPECT_FLOAT_EQ(blend(0, 0), 8.0f);
  EXPECT_FLOAT_EQ(blend(1, 0), 8.0f);
  EXPECT_FLOAT_EQ(blend(1, 1), (0.25f * 8.0f + 3.0f * 2.0f) / 3.25f);

  CMatrix<float> wrong(3, 3, 1.0f);
  CMatrix<float> target(4, 4, 1.0f);
  expectRefused(target, [&](CMatrix<float>& m) { m.downsample(2, 2, wrong); }, "do not match");
}

// The tensor forms resample every plane like the matrix form, keep the
// plane order, and share a one-plane weight tensor across planes.
TEST(Resample, TensorPlanesResampleIndependently) {
  CTensor<float> t(6, 4, 3);
  for (size_t i = 0; i < t.elements(); ++i) t.data[i] = static_cast<float>((i * 7) % 23);
  CTensor<float> up(t), down(t), weighted(t);
  CTensor<float> g(6, 4, 1);
  for (size_t i = 0; i < g.elements(); ++i) g.data[i] = static_cast<float>(i % 4);
  up.upsampleBilinear(9, 7);
  down.downsample(4, 3);
  weighted.downsample(3, 2, g);
  CMatrix<float> gm(6, 4);
  g.getMatrix(gm, 0);
  for (int z = 0; z < 3; ++z) {
    CMatrix<float> plane(6, 4);
    t.getMatrix(plane, z);
    CMatrix<float> mu(plane), md(plane), mw(plane);
    mu.upsampleBilinear(9, 7);
    md.downsample(4, 3);
    mw.downsample(3, 2, gm);
    for (int i = 0; i < 63; ++i) ASSERT_EQ(up.data[z * 63 + i], mu.data[i]);
    for (int i = 0; i < 12; ++i) ASSERT_EQ(down.data[z * 12 + i], md.data[i]);
    for (int i = 0; i < 6; ++i) ASSERT_EQ(weighted.data[z * 6 + i], mw.data[i]);
  }
  EXPECT_EQ(up.xSize * 100 + up.ySize * 10 + up.zSize, 973);

  CTensor<float> twoPlanes(6, 4, 2, 1.0f);
  testing::internal::CaptureStderr();
  EXPECT_THROW(t.downsample(3, 2, twoPlanes), std::invalid_argument);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("do not match"), std::string::npos);
}
