// Host image stages on the real frame pairs beside the repository; skipped
// where the frames are absent.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "image/filter.h"
#include "image/recursive_smooth.h"
#include "image/tensor.h"
#include "support/process.h"

namespace {

std::string framePath(const std::string& pair) {
  return std::string(VEMO_DATA_DIR) + "/" + pair + "/frame1.ppm";
}

using vemotest::exists;

}  // namespace

// The recursion must equal correlation with its closed-form impulse
// response k (1 + a|n|) exp(-a|n|), a = 2.5 / (sigma sqrt(pi)), computed here
// independently as a mask. Away from the borders (where the recursion's
// half-weight start differs from mirroring) they agree to rounding; a wrong
// coefficient or a mis-indexed tap in either pass breaks this.
TEST(RealFrames, RecursiveSmoothingEqualsItsClosedFormImpulseResponse) {
  const std::string path = framePath("middlebury_rubberwhale");
  if (!exists(path)) GTEST_SKIP() << "no frame at " << path;
  CTensor<float> frame;
  frame.readFromPPM(path.c_str());
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
