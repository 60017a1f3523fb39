#include "image/recursive_smooth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "image/filter.h"
#include "image/synthetic.h"

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
// no access outside the line); two samples move towards each other, the same
// along x and y. A non-positive sigma or an empty image must not crash
// either.
TEST(RecursiveSmooth, ShortLinesAndDegenerateInputsAreSafe) {
  CTensor<float> oneWide(1, 5, 2);
  for (int i = 0; i < 10; ++i) oneWide.data[i] = static_cast<float>(i);
  NFilter::recursiveSmoothX(oneWide, 0.8f);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(oneWide.data[i], static_cast<float>(i));
  CMatrix<float> oneHigh(4, 1, 3.0f);
  NFilter::recursiveSmoothY(oneHigh, 0.8f);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(oneHigh.data[i], 3.0f);

  CMatrix<float> two(2, 1);
  two(0, 0) = 10.0f;
  two(1, 0) = 50.0f;
  CMatrix<float> twoY(1, 2);
  twoY.data[0] = 10.0f;
  twoY.data[1] = 50.0f;
  NFilter::recursiveSmoothX(two, 2.0f);
  NFilter::recursiveSmoothY(twoY, 2.0f);
  EXPECT_GT(two(0, 0), 10.0f);
  EXPECT_LT(two(1, 0), 50.0f);
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

// The recursion must equal correlation with its closed-form impulse
// response k (1 + a|n|) exp(-a|n|), a = 2.5 / (sigma sqrt(pi)), computed here
// independently as a mask. Away from the borders (where the recursion's
// half-weight start differs from mirroring) they agree to rounding; a wrong
// coefficient, a lost unit mass, an asymmetric pass or a mis-indexed tap in
// either pass breaks this.
TEST(RecursiveSmooth, EqualsItsClosedFormImpulseResponse) {
  const CTensor<float> frame = NSynthetic::renderShifted(NSynthetic::CTexture(5), 160, 130, 0.0, 0.0);
  for (float sigma : {0.8f, 2.0f}) {
    SCOPED_TRACE(sigma);
    CTensor<float> recursive(frame);
    NFilter::recursiveSmoothX(recursive, sigma);
    NFilter::recursiveSmoothY(recursive, sigma);

    const double a = 2.5 / (sigma * std::sqrt(3.14159265358979));
    const double e = std::exp(-a);
    const double k = (1 - e) * (1 - e) / (1 + 2 * a * e - e * e);
    const int radius = static_cast<int>(std::ceil(30.0 / a));
    CFilter<float> response(2 * radius + 1, radius);
    for (int n = -radius; n <= radius; ++n) {
      const double d = std::abs(n);
      response.data[radius + n] = static_cast<float>(k * (1 + a * d) * std::exp(-a * d));
    }
    CTensor<float> tmp(frame.xSize, frame.ySize, 3), direct(tmp);
    NFilter::filter(frame, tmp, response, 1, 1);
    NFilter::filter(tmp, direct, 1, response, 1);

    const int margin = radius;
    double maxDiff = 0;
    for (int z = 0; z < 3; ++z)
      for (int y = margin; y < frame.ySize - margin; ++y)
        for (int x = margin; x < frame.xSize - margin; ++x)
          maxDiff = std::max(maxDiff, std::fabs(static_cast<double>(recursive(x, y, z)) -
                                                direct(x, y, z)));
    EXPECT_LT(maxDiff, 2e-3) << "radius " << radius;
  }
}
