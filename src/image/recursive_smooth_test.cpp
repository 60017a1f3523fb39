#include "image/recursive_smooth.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// The filter coefficients in double, from their closed forms.
struct Coeffs {
  double e, e2, k, aPlus, aMinus;
};

Coeffs coeffs(double sigma) {
  const double a = 2.5 / (sigma * std::sqrt(3.14159265358979));
  Coeffs c;
  c.e = std::exp(-a);
  c.e2 = c.e * c.e;
  c.k = (1 - c.e) * (1 - c.e) / (2 * a * c.e + 1 - c.e2);
  c.aPlus = (a + 1) * c.e;
  c.aMinus = (a - 1) * c.e;
  return c;
}

}  // namespace

// A wrong gain or a wrong border start term shows up on a constant image: the
// interior must keep the value, and the first and last samples must take the
// steady states of the two passes plus the half-weighted edge sample.
TEST(RecursiveSmooth, ConstantImageKeepsInteriorAndFollowsBorderRule) {
  const float value = 100.0f;
  const double sigma = 0.8;
  const Coeffs c = coeffs(sigma);
  // Steady states of a pass on a constant line: causal f and anticausal b.
  const double fInf = value * c.k * (1 + c.aMinus) / ((1 - c.e) * (1 - c.e));
  const double bInf = value * c.k * (c.aPlus - c.e2) / ((1 - c.e) * (1 - c.e));
  EXPECT_NEAR(fInf + bInf, value, 1e-3);

  CTensor<float> t(40, 30, 2, value);
  NFilter::recursiveSmoothX(t, static_cast<float>(sigma));
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 30; ++y) {
      for (int x = 9; x < 31; ++x) ASSERT_NEAR(t(x, y, z), value, 2e-3) << x << "," << y;
      EXPECT_NEAR(t(0, y, z), 0.5 * value + bInf, 2e-3);
      EXPECT_NEAR(t(39, y, z), fInf + 0.5 * value, 2e-3);
    }
  // The left border keeps half of the edge sample's own weight: visibly off.
  EXPECT_GT(std::fabs(t(0, 0, 0) - value), 1.0f);
  EXPECT_GT(std::fabs(t(39, 0, 0) - value), 1.0f);

}

// An impulse far from the borders must spread symmetrically, decay
// monotonically and keep its mass; an asymmetric pass (wrong index in a
// recursion) breaks the symmetry.
TEST(RecursiveSmooth, ImpulseSpreadsSymmetricallyWithUnitMass) {
  CMatrix<float> m(41, 3, 0.0f);
  m(20, 1) = 1.0f;
  NFilter::recursiveSmoothX(m, 0.8f);
  double sum = 0;
  for (int x = 0; x < 41; ++x) sum += m(x, 1);
  EXPECT_NEAR(sum, 1.0, 1e-5);
  EXPECT_GT(m(20, 1), 0.4f);
  EXPECT_LT(m(20, 1), 0.6f);
  for (int d = 1; d <= 6; ++d) {
    EXPECT_NEAR(m(20 - d, 1), m(20 + d, 1), 1e-6f) << d;
    EXPECT_LT(m(20 + d, 1), m(20 + d - 1, 1)) << d;
  }
  // Rows other than the impulse's stay zero.
  for (int x = 0; x < 41; ++x) EXPECT_EQ(m(x, 0) + m(x, 2), 0.0f);
}

// Every line must be filtered exactly as if it were alone, whichever block
// of neighbouring lines it is filtered with: each row of a 45 x 40 x 3
// tensor (120 rows, several blocks, the last partial) equals that row
// filtered as a one-row matrix, and each column equals the row filtering of
// the transposed plane. This catches wrong strides, plane offsets and block
// bookkeeping.
TEST(RecursiveSmooth, EveryLineIsFilteredAsIfAlone) {
  const int w = 45, h = 40;
  CTensor<float> t(w, h, 3);
  for (size_t i = 0; i < t.elements(); ++i) t.data[i] = static_cast<float>((i * 37) % 101);
  CTensor<float> tx(t), ty(t);
  NFilter::recursiveSmoothX(tx, 1.7f);
  NFilter::recursiveSmoothY(ty, 1.7f);
  for (int z = 0; z < 3; ++z) {
    CMatrix<float> plane(w, h);
    t.getMatrix(plane, z);
    for (int y = 0; y < h; ++y) {
      CMatrix<float> row(w, 1);
      for (int x = 0; x < w; ++x) row(x, 0) = plane(x, y);
      NFilter::recursiveSmoothX(row, 1.7f);
      for (int x = 0; x < w; ++x) ASSERT_EQ(tx(x, y, z), row(x, 0)) << x << "," << y << "," << z;
    }
    for (int x = 0; x < w; ++x) {
      CMatrix<float> row(h, 1);
      for (int y = 0; y < h; ++y) row(y, 0) = plane(x, y);
      NFilter::recursiveSmoothX(row, 1.7f);
      for (int y = 0; y < h; ++y) ASSERT_EQ(ty(x, y, z), row(y, 0)) << x << "," << y << "," << z;
    }
  }
}

// Lines of one or two samples: one sample cannot be filtered (left as is,
// no access outside the line); two samples use only the start terms.
// A non-positive sigma or an empty image must not crash either.
TEST(RecursiveSmooth, ShortLinesAndDegenerateInputsAreSafe) {
  CTensor<float> oneWide(1, 5, 2);
  for (int i = 0; i < 10; ++i) oneWide.data[i] = static_cast<float>(i);
  NFilter::recursiveSmoothX(oneWide, 0.8f);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(oneWide.data[i], static_cast<float>(i));
  CMatrix<float> oneHigh(4, 1, 3.0f);
  NFilter::recursiveSmoothY(oneHigh, 0.8f);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(oneHigh.data[i], 3.0f);

  const double x0 = 10, x1 = 50;
  const Coeffs c = coeffs(2.0);
  const double f0 = 0.5 * x0, f1 = c.k * (c.aMinus * x0 + x1) + f0 * (2 * c.e - c.e2);
  const double b1 = 0.5 * x1, b0 = (c.aPlus - c.e2) * x1 * c.k + (2 * c.e - c.e2) * b1;
  CMatrix<float> two(2, 1);
  two(0, 0) = 10.0f;
  two(1, 0) = 50.0f;
  CMatrix<float> twoY(1, 2);
  twoY.data[0] = 10.0f;
  twoY.data[1] = 50.0f;
  NFilter::recursiveSmoothX(two, 2.0f);
  NFilter::recursiveSmoothY(twoY, 2.0f);
  EXPECT_NEAR(two(0, 0), f0 + b0, 1e-4);
  EXPECT_NEAR(two(1, 0), f1 + b1, 1e-4);
  EXPECT_EQ(twoY.data[0], two(0, 0));
  EXPECT_EQ(twoY.data[1], two(1, 0));

  CMatrix<float> m(5, 5, 7.0f);
  NFilter::recursiveSmoothX(m, 0.0f);
  NFilter::recursiveSmoothY(m, -1.0f);
  for (int i = 0; i < 25; ++i) EXPECT_EQ(m.data[i], 7.0f);
  CTensor<float> empty;
  NFilter::recursiveSmoothX(empty, 0.8f);
  NFilter::recursiveSmoothY(empty, 0.8f);
  EXPECT_EQ(empty.data, nullptr);
}
