// The host-buffer entry points of the matching give exactly what the
// backend-resident stage gives on the same frames.
#include "matching/host_entry_points.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "backends/matching_stages.h"
#include "matching/hog_match_driver.h"
#include "matching/match_test_util.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using match_testing::texturedFrame;
using testing::TestImage;

TEST(HostMatchingEntryPoints, GiveTheBackendResultsForPaddedRowsAndRefuseNullArrays) {
  CpuBackend backend;
  const int h = 50, w = 61;  // rows padded to 64 floats
  const auto a = texturedFrame(h, w, w, 21), b = texturedFrame(h, w, w, 21, 3, -2);
  TestImage f1(backend, h, w, 3), f2(backend, h, w, 3), u(backend, h, w), v(backend, h, w), c(backend, h, w);
  f1.fill([&](int x, int y, int k) { return a.at(x, y, k); });
  f2.fill([&](int x, int y, int k) { return b.at(x, y, k); });
  ASSERT_NE(f1.pitch, w);

  ::testing::internal::CaptureStdout();
  gCreateAndMatchHOG(backend, f1.data(), f2.data(), u.data(), v.data(), c.data(), h, w, f1.pitch, 3);
  std::vector<float> hu(h * w, 5.0f), hv(h * w, 5.0f), hc(h * w, 5.0f);
  createAndMatchHOG(a.data.data(), b.data.data(), hu.data(), hv.data(), hc.data(), h, w, 3);
  const std::string printed = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(printed.find("10 7 61 50\n"), std::string::npos) << printed;
  EXPECT_EQ(hu, u.dense());
  EXPECT_EQ(hv, v.dense());
  EXPECT_EQ(hc, c.dense());
  int matched = 0;
  for (std::size_t i = 0; i < hc.size(); ++i)
    if (hc[i] > 0 && hu[i] == 3.0f && hv[i] == -2.0f) ++matched;
  EXPECT_GT(matched, 10);

  // The descriptor field of one frame, all fifteen planes.
  const std::unique_ptr<MatchingStages> stages = makeMatchingStages(backend);
  TestImage hog(backend, h, w, 15);
  stages->computeHOG(f2.data(), hog.data(), 3, 15, h, w, f2.pitch);
  std::vector<float> field(15 * h * w, -1.0f);
  ComputeHOGGPU(b.data.data(), field.data(), 3, 15, h, w);
  EXPECT_EQ(field, hog.dense());

  ::testing::internal::CaptureStderr();
  EXPECT_THROW(createAndMatchHOG(a.data.data(), nullptr, hu.data(), hv.data(), hc.data(), h, w, 3),
               std::invalid_argument);
  EXPECT_THROW(ComputeHOGGPU(b.data.data(), field.data(), 3, 0, h, w), std::invalid_argument);
  EXPECT_THROW(ComputeHOGGPU(b.data.data(), field.data(), 3, 15, h, 0), std::invalid_argument);
  ::testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace vemo
