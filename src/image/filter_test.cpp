#include "image/filter.h"

#include <gtest/gtest.h>

#include <string>

#include "image/exceptions.h"

namespace {

// A mask from explicit weights.
CFilter<float> mask(std::initializer_list<float> weights, int offset) {
  CFilter<float> f(static_cast<int>(weights.size()), offset);
  int k = 0;
  for (float w : weights) f.data[k++] = w;
  return f;
}

}  // namespace

// The axis is chosen by the mask's argument position: each axis of
// f = x + 10 y + 100 z sees its own slope, halved at both ends where the
// mirror repeats the edge sample. Masks are correlated (not flipped), and a
// line shorter than the mask keeps reflecting instead of reading outside it.
TEST(Filter, CorrelatesAlongTheChosenAxisAndMirrorsShortLines) {
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

  CMatrix<float> shift(4, 1), shifted(4, 1);
  for (int x = 0; x < 4; ++x) shift(x, 0) = static_cast<float>(x + 1);
  NFilter::filter(shift, shifted, mask({0, 0, 1}, 1), 1);
  EXPECT_EQ(shifted(0, 0), 2.0f);  // result(x) = source(x + 1)
  EXPECT_EQ(shifted(3, 0), 4.0f);  // source(4) mirrors to source(3)

  // Line [1, 2]; decimal weights make every tap's sample readable: taps at
  // -2..2 read [2, 1, 1, 2, 2] at x = 0 and [1, 1, 2, 2, 1] at x = 1.
  CMatrix<float> two(1, 2), out(1, 2);
  two.data[0] = 1.0f;
  two.data[1] = 2.0f;
  NFilter::filter(two, out, 1, mask({1, 10, 100, 1000, 10000}, 2));
  EXPECT_EQ(out.data[0], 22112.0f);
  EXPECT_EQ(out.data[1], 12211.0f);
  // The reflection has period 2n: for n = 2, offsets -4..4 read
  // 1 2 2 1 1 2 2 1 1 at x = 0.
  NFilter::filter(two, out, 1, mask({1, 1, 1, 1, 1, 1, 1, 1, 1}, 4));
  EXPECT_EQ(out.data[0], 13.0f);
  EXPECT_EQ(out.data[1], 14.0f);
}

// Filtering in place must give what filtering into another container gives
// (taps must not read samples already overwritten) along every axis; sizes
// that differ are refused with both element counts.
TEST(Filter, InPlaceEqualsSeparateAndSizesMustMatch) {
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
    for (size_t i = 0; i < t.elements(); ++i) ASSERT_EQ(inPlace.data[i], separate.data[i]) << axis;
  }

  CTensor<float> a(4, 3, 2, 0.0f), b(4, 3, 1, 0.0f);
  testing::internal::CaptureStderr();
  EXPECT_THROW(NFilter::filter(a, b, CDerivative<float>(2), 1, 1), EFilterIncompatibleSize);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Exception EFilterIncompatibleSize: Initial container size: 24  Resulting "
            "container size: 12\n");
  testing::internal::CaptureStderr();
  EXPECT_THROW(NFilter::boxFilterY(a, b, 3), EFilterIncompatibleSize);
  testing::internal::GetCapturedStderr();
}

// An even size rounds up to the next odd width; near the ends the window is
// cut to the samples inside the line (no mirroring); a window wider than the
// line averages the whole line; a negative size is refused.
TEST(BoxFilter, EvenSizeWidensAndWindowShrinksAtTheEnds) {
  CMatrix<float> col(1, 8), out(1, 8);
  for (int y = 0; y < 8; ++y) col.data[y] = static_cast<float>(y * y);
  NFilter::boxFilterY(col, out, 4);
  EXPECT_FLOAT_EQ(out.data[0], (0 + 1 + 4) / 3.0f);
  EXPECT_FLOAT_EQ(out.data[1], (0 + 1 + 4 + 9) / 4.0f);
  EXPECT_FLOAT_EQ(out.data[4], (4 + 9 + 16 + 25 + 36) / 5.0f);
  EXPECT_FLOAT_EQ(out.data[7], (25 + 36 + 49) / 3.0f);

  CTensor<float> t(3, 2, 2), tx(3, 2, 2);
  for (int i = 0; i < 12; ++i) t.data[i] = static_cast<float>(i);
  NFilter::boxFilterX(t, tx, 100);
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 2; ++y)
      for (int x = 0; x < 3; ++x) EXPECT_FLOAT_EQ(tx(x, y, z), t(1, y, z));

  testing::internal::CaptureStderr();
  EXPECT_THROW(NFilter::boxFilterX(t, tx, -1), std::invalid_argument);
  EXPECT_FALSE(testing::internal::GetCapturedStderr().empty());
}
