#include "image/filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "image/exceptions.h"
#include "image/mirror.h"

namespace {

// A mask from explicit weights.
CFilter<float> mask(std::initializer_list<float> weights, int offset) {
  CFilter<float> f(static_cast<int>(weights.size()), offset);
  int k = 0;
  for (float w : weights) f.data[k++] = w;
  return f;
}

}  // namespace

// The central difference of a ramp is its slope inside and half of it at
// both ends, where the mirror repeats the edge sample. The axis is chosen by
// the mask's argument position: each axis of f = x + 10 y + 100 z must see
// its own slope.
TEST(Filter, DerivativeOfRampMirrorsEdgesOnEveryAxis) {
  CTensor<float> t(6, 5, 4);
  for (int z = 0; z < 4; ++z)
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < 6; ++x) t(x, y, z) = x + 10.0f * y + 100.0f * z;
  const CDerivative<float> d(3);
  CTensor<float> gx(6, 5, 4), gy(6, 5, 4), gz(6, 5, 4);
  NFilter::filter(t, gx, d, 1, 1);
  NFilter::filter(t, gy, 1, d, 1);
  NFilter::filter(t, gz, 1, 1, d);
  for (int z = 0; z < 4; ++z)
    for (int y = 0; y < 5; ++y)
      for (int x = 0; x < 6; ++x) {
        ASSERT_EQ(gx(x, y, z), (x == 0 || x == 5) ? 0.5f : 1.0f) << x << y << z;
        ASSERT_EQ(gy(x, y, z), (y == 0 || y == 4) ? 5.0f : 10.0f) << x << y << z;
        ASSERT_EQ(gz(x, y, z), (z == 0 || z == 3) ? 50.0f : 100.0f) << x << y << z;
      }
}

// Masks are correlated (not flipped), and a line shorter than the mask
// radius mirrors every tap back into the line. Decimal weights make every
// tap's sample readable in the result. Masks longer than twice the line
// keep reflecting instead of reading outside it.
TEST(Filter, CorrelatesAndMirrorsLinesShorterThanTheMask) {
  CMatrix<float> shift(4, 1), shifted(4, 1);
  for (int x = 0; x < 4; ++x) shift(x, 0) = static_cast<float>(x + 1);
  NFilter::filter(shift, shifted, mask({0, 0, 1}, 1), 1);
  EXPECT_EQ(shifted(0, 0), 2.0f);  // result(x) = source(x + 1)
  EXPECT_EQ(shifted(3, 0), 4.0f);  // source(4) mirrors to source(3)

  // Line [1, 2]; taps at -2..2 read [2, 1, 1, 2, 2] at x = 0 and
  // [1, 1, 2, 2, 1] at x = 1.
  CMatrix<float> two(1, 2), out(1, 2);
  two.data[0] = 1.0f;
  two.data[1] = 2.0f;
  const CFilter<float> decimal = mask({1, 10, 100, 1000, 10000}, 2);
  NFilter::filter(two, out, 1, decimal);
  EXPECT_EQ(out.data[0], 22112.0f);
  EXPECT_EQ(out.data[1], 12211.0f);

  // Same along x and z, through the tensor forms.
  CTensor<float> row(2, 1, 1), rowOut(2, 1, 1), depth(1, 1, 2), depthOut(1, 1, 2);
  row.data[0] = depth.data[0] = 1.0f;
  row.data[1] = depth.data[1] = 2.0f;
  NFilter::filter(row, rowOut, decimal, 1, 1);
  NFilter::filter(depth, depthOut, 1, 1, decimal);
  EXPECT_EQ(rowOut.data[0], 22112.0f);
  EXPECT_EQ(depthOut.data[1], 12211.0f);

  // The reflection has period 2n: for n = 2, offsets -4..5 read
  // 1 2 2 1 | 1 2 | 2 1 1 2.
  const CFilter<float> wide = mask({1, 1, 1, 1, 1, 1, 1, 1, 1}, 4);
  NFilter::filter(two, out, 1, wide);
  EXPECT_EQ(out.data[0], 13.0f);  // taps read 1 2 2 1 1 2 2 1 1
  EXPECT_EQ(out.data[1], 14.0f);  // taps read 2 2 1 1 2 2 1 1 2
}

// Filtering in place must give what filtering into another container gives
// (taps must not read samples already overwritten), on the border path, the
// middle path and the row-blocked y path.
TEST(Filter, InPlaceFilteringMatchesSeparateResult) {
  CTensor<float> t(23, 17, 2);
  for (size_t i = 0; i < t.elements(); ++i) t.data[i] = static_cast<float>((i * 31) % 97);
  const CSmooth<float> g(1.5f, 3.0f);
  for (int axis = 0; axis < 3; ++axis) {
    CTensor<float> separate(23, 17, 2), inPlace(t);
    if (axis == 0) {
      NFilter::filter(t, separate, g, 1, 1);
      NFilter::filter(inPlace, inPlace, g, 1, 1);
    } else if (axis == 1) {
      NFilter::filter(t, separate, 1, g, 1);
      NFilter::filter(inPlace, inPlace, 1, g, 1);
    } else {
      NFilter::filter(t, separate, 1, 1, g);
      NFilter::filter(inPlace, inPlace, 1, 1, g);
    }
    for (size_t i = 0; i < t.elements(); ++i) ASSERT_EQ(inPlace.data[i], separate.data[i]);
  }
  // Bit-exact against the per-sample formula, summed tap by tap from 0.
  CTensor<float> gx(23, 17, 2);
  NFilter::filter(t, gx, g, 1, 1);
  for (int y = 0; y < 17; ++y)
    for (int x = 0; x < 23; ++x) {
      float sum = 0.0f;
      for (int k = 0; k < g.size; ++k)
        sum += g.data[k] * t(NFilter::mirrorIndex(x + k - g.offset, 23), y, 1);
      ASSERT_EQ(gx(x, y, 1), sum) << x << "," << y;
    }
}

TEST(Filter, SizeMismatchPrintsBothElementCounts) {
  CTensor<float> a(4, 3, 2, 0.0f), b(4, 3, 1, 0.0f), c(3, 4, 2, 0.0f);
  const CDerivative<float> d(2);
  testing::internal::CaptureStderr();
  EXPECT_THROW(NFilter::filter(a, b, d, 1, 1), EFilterIncompatibleSize);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Exception EFilterIncompatibleSize: Initial container size: 24  Resulting "
            "container size: 12\n");
  testing::internal::CaptureStderr();
  EXPECT_THROW(NFilter::filter(a, c, 1, 1, d), EFilterIncompatibleSize);
  EXPECT_THROW(NFilter::boxFilterY(a, b, 3), EFilterIncompatibleSize);
  CMatrix<float> m(2, 2, 0.0f), n(2, 3, 0.0f);
  EXPECT_THROW(NFilter::filter(m, n, 1, d), EFilterIncompatibleSize);
  EXPECT_THROW(NFilter::boxFilterX(m, n, 3), EFilterIncompatibleSize);
  testing::internal::GetCapturedStderr();
}

// An even size rounds up to the next odd width; near the ends the window is
// cut to the samples inside the line (no mirroring); a window wider than the
// line averages the whole line.
TEST(BoxFilter, EvenSizeWidensAndWindowShrinksAtTheEnds) {
  CMatrix<float> col(1, 8), out(1, 8);
  for (int y = 0; y < 8; ++y) col.data[y] = static_cast<float>(y * y);
  NFilter::boxFilterY(col, out, 4);
  EXPECT_FLOAT_EQ(out.data[0], (0 + 1 + 4) / 3.0f);
  EXPECT_FLOAT_EQ(out.data[1], (0 + 1 + 4 + 9) / 4.0f);
  EXPECT_FLOAT_EQ(out.data[4], (4 + 9 + 16 + 25 + 36) / 5.0f);
  EXPECT_FLOAT_EQ(out.data[7], (25 + 36 + 49) / 3.0f);
  CMatrix<float> odd(1, 8);
  NFilter::boxFilterY(col, odd, 5);
  for (int y = 0; y < 8; ++y) EXPECT_EQ(odd.data[y], out.data[y]);

  CTensor<float> t(3, 2, 2), tx(3, 2, 2);
  for (int i = 0; i < 12; ++i) t.data[i] = static_cast<float>(i);
  NFilter::boxFilterX(t, tx, 100);
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 3; ++x) EXPECT_FLOAT_EQ(tx(x, y, z), t(1, y, z));

  // Size 0 is the identity. On 70 lines (more than one block of lines,
  // the last one partial) both directions give the windowed mean of every
  // line, and filtering in place equals filtering into another tensor.
  CTensor<float> same(t);
  NFilter::boxFilterY(same, same, 0);
  for (int i = 0; i < 12; ++i) EXPECT_EQ(same.data[i], t.data[i]);
  CTensor<float> wide(70, 9, 2), wy(70, 9, 2), tall(9, 70, 2), tx2(9, 70, 2);
  for (size_t i = 0; i < wide.elements(); ++i) wide.data[i] = static_cast<float>((i * 13) % 29);
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 9; ++y)
      for (int x = 0; x < 70; ++x) tall(y, x, z) = wide(x, y, z);
  NFilter::boxFilterY(wide, wy, 3);
  NFilter::boxFilterX(tall, tx2, 3);
  for (int z = 0; z < 2; ++z)
    for (int x = 0; x < 70; ++x)
      for (int y = 0; y < 9; ++y) {
        double sum = 0;
        int count = 0;
        for (int j = std::max(0, y - 1); j <= std::min(8, y + 1); ++j, ++count) {
          sum += wide(x, j, z);
        }
        ASSERT_NEAR(wy(x, y, z), sum / count, 1e-4) << x << "," << y << "," << z;
        ASSERT_EQ(tx2(y, x, z), wy(x, y, z)) << x << "," << y << "," << z;
      }
  NFilter::boxFilterY(wide, wide, 3);
  for (size_t i = 0; i < wide.elements(); ++i) ASSERT_EQ(wide.data[i], wy.data[i]);
  NFilter::boxFilterX(tall, tall, 3);
  for (size_t i = 0; i < tall.elements(); ++i) ASSERT_EQ(tall.data[i], tx2.data[i]);

  testing::internal::CaptureStderr();
  EXPECT_THROW(NFilter::boxFilterX(t, tx, -1), std::invalid_argument);
  EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}
