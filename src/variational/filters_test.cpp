// Gaussian filters of backend images and the host-buffer filter entry
// points, against correlations with clamped borders computed here.
#include "variational/filters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "method/filter_masks.h"
#include "variational/host_entry_points.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::TestImage;

// Correlation of a dense image (row stride `stride`) with a row-major
// mh x mw mask, samples clamped to [0, cols - 1] x [0, rows - 1].
std::vector<double> correlate(const std::vector<double>& img, int rows, int cols, int stride,
                              const std::vector<float>& mask, int mh, int mw) {
  std::vector<double> out(img.size(), 0.0);
  for (int y = 0; y < rows; ++y)
    for (int x = 0; x < cols; ++x) {
      double s = 0.0;
      for (int i = 0; i < mh; ++i)
        for (int j = 0; j < mw; ++j) {
          const int yy = std::min(std::max(y + i - mh / 2, 0), rows - 1);
          const int xx = std::min(std::max(x + j - mw / 2, 0), cols - 1);
          s += mask[i * mw + j] * img[yy * stride + xx];
        }
      out[y * stride + x] = s;
    }
  return out;
}

std::vector<float> noise(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> d(0.0f, 255.0f);
  std::vector<float> v(n);
  for (float& x : v) x = d(rng);
  return v;
}

// The horizontal pass treats the whole padded row as the image, and the
// output's padding keeps what it held: a pass that stops at the width or
// writes the padding differs from the reference.
TEST(GaussianFilterOfBackendImages, HorizontalPassRunsOverThePaddedRowAndLeavesTheOutputPaddingAlone) {
  CpuBackend backend(16, 0);
  const int h = 11, w = 21;  // pitch 32: eleven padding columns
  const float sigma = 1.0f;  // seven taps
  TestImage in(backend, h, w), out(backend, h, w);
  const int p = in.pitch;
  ASSERT_EQ(p, 32);
  const std::vector<float> values = noise(static_cast<std::size_t>(h) * p, 4);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < p; ++x) {
      in.at(x, y) = x < w ? values[y * p + x] : 1000.0f + x;
      out.at(x, y) = -7.0f;
    }
  int length = 0;
  const std::vector<float> mask = GaussianFilterCreate(sigma, length);
  ASSERT_EQ(length, 7);
  // Reference: the whole padded row is the image along x.
  std::vector<double> img(static_cast<std::size_t>(h) * p);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < p; ++x) img[y * p + x] = in.at(x, y);
  const std::vector<double> ref = correlate(correlate(img, h, p, p, mask, 1, length), h, p, p, mask, length, 1);

  gGaussianFilter(backend, out.data(), in.data(), h, w, p, sigma);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) ASSERT_NEAR(out.at(x, y), ref[y * p + x], 1e-3) << x << "," << y;
    for (int x = w; x < p; ++x) ASSERT_EQ(out.at(x, y), -7.0f);
  }
}

TEST(HostFilterEntryPoints, MatchClampedCorrelationsAlongTheRightAxesAndRefuseBadSizes) {
  const int h = 9, w = 13;
  std::vector<float> in = noise(static_cast<std::size_t>(h) * w, 7), out(in.size());
  const std::vector<double> img(in.begin(), in.end());
  auto expectNear = [&](const std::vector<double>& ref, const char* what) {
    for (std::size_t i = 0; i < ref.size(); ++i) ASSERT_NEAR(out[i], ref[i], 2e-3) << what << " " << i;
  };

  // A non-separable 3 x 5 mask, rows and columns of different weights.
  std::vector<float> mask2d(15);
  for (int k = 0; k < 15; ++k) mask2d[k] = 0.01f * (k + 1) * (k % 3 == 0 ? -1.0f : 1.0f);
  Convolve2d(out.data(), h, w, in.data(), h, w, mask2d.data(), 3, 5);
  expectNear(correlate(img, h, w, w, mask2d, 3, 5), "2-D");

  // A 1-D mask (width 1) runs along x, then along y.
  std::vector<float> mask1d = {0.1f, 0.2f, 0.3f, 0.4f, -0.5f};
  Convolve2d(out.data(), h, w, in.data(), h, w, mask1d.data(), 5, 1);
  expectNear(correlate(correlate(img, h, w, w, mask1d, 1, 5), h, w, w, mask1d, 5, 1), "separable");

  int length = 0;
  std::vector<float> gauss = GaussianFilterCreate(1.5f, length);
  GaussianFilter(out.data(), h, w, in.data(), h, w, 1.5f);
  expectNear(correlate(correlate(img, h, w, w, gauss, 1, length), h, w, w, gauss, length, 1), "gaussian");

  std::vector<float> deriv = GaussianDerivativeFilterCreate(1.0f, length);
  GaussianDerivativeFilter(out.data(), h, w, in.data(), h, w, 1.0f, 'x');
  expectNear(correlate(img, h, w, w, deriv, 1, length), "d/dx");
  GaussianDerivativeFilter(out.data(), h, w, in.data(), h, w, 1.0f, 'v');
  expectNear(correlate(img, h, w, w, deriv, length, 1), "d/dy");

  ::testing::internal::CaptureStderr();
  EXPECT_THROW(Convolve2d(out.data(), h, w + 1, in.data(), h, w, mask2d.data(), 3, 5), std::invalid_argument);
  std::vector<float> huge(64 * 64, 0.0f);
  EXPECT_THROW(Convolve2d(out.data(), h, w, in.data(), h, w, huge.data(), 64, 64), std::invalid_argument);
  EXPECT_THROW(GaussianDerivativeFilter(out.data(), h, w, nullptr, h, w, 1.0f, 'x'), std::invalid_argument);
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("Convolve2d"), std::string::npos) << err;
}

}  // namespace
}  // namespace vemo
