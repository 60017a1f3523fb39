// Matches of the real frame pairs against their reference flow: wrong cell
// offsets, bins or pre-filters show up as matches that disagree with it.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "backends/cpu/cpu_matching_stages.h"
#include "driver/optic_flow.h"
#include "image/recursive_smooth.h"
#include "image/tensor.h"
#include "matching/hog_match_driver.h"
#include "support/process.h"

namespace flowcore {
namespace {

using vemotest::exists;

struct MatchQuality {
  int gridPoints = 0, accepted = 0, within3 = 0, large = 0, largeWithin3 = 0;
};

// Runs the matching stage on a presmoothed pair (as the pipeline does) and
// compares every accepted match with the reference flow at its grid point.
MatchQuality measure(const std::string& set) {
  const std::string dir = std::string(VEMO_DATA_DIR) + "/" + set;
  CTensor<float> f1, f2, truth;
  f1.readFromPPM((dir + "/frame1.ppm").c_str());
  f2.readFromPPM((dir + "/frame2.ppm").c_str());
  COpticFlow::readMiddlebury((dir + "/gt.flo").c_str(), truth);
  for (CTensor<float>* f : {&f1, &f2}) {
    NFilter::recursiveSmoothX(*f, 0.8f);
    NFilter::recursiveSmoothY(*f, 0.8f);
  }
  const int w = f1.xSize, h = f1.ySize;
  CpuBackend backend;
  CpuMatchingStages stages;
  const int pitch = backend.pitchFor(w);
  const std::size_t plane = (std::size_t)pitch * h;
  Buffer i1 = backend.allocate(3 * plane), i2 = backend.allocate(3 * plane);
  Buffer u = backend.allocate(plane), v = backend.allocate(plane), conf = backend.allocate(plane);
  backend.upload(i1.data(), pitch, f1.data, w, 3 * h);
  backend.upload(i2.data(), pitch, f2.data, w, 3 * h);
  ::testing::internal::CaptureStdout();
  gCreateAndMatchHOG(backend, stages, i1.data(), i2.data(), u.data(), v.data(), conf.data(), h, w, pitch, 3);
  ::testing::internal::GetCapturedStdout();

  MatchQuality q;
  q.gridPoints = matchGridCount(w) * matchGridCount(h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const std::size_t k = (std::size_t)y * pitch + x;
      if (!(conf.data()[k] > 0.0f)) continue;
      const float tu = truth.data[(std::size_t)y * w + x], tv = truth.data[((std::size_t)h + y) * w + x];
      if (std::fabs(tu) >= 1e9f || std::fabs(tv) >= 1e9f) continue;
      const bool close = std::hypot(u.data()[k] - tu, v.data()[k] - tv) <= 3.0f;
      ++q.accepted;
      q.within3 += close;
      if (std::hypot(tu, tv) > 20.0f) {
        ++q.large;
        q.largeWithin3 += close;
      }
    }
  std::printf("%s: %d of %d grid points matched, %.1f%% within 3 px; %d large motions, %.1f%% within 3 px\n",
              set.c_str(), q.accepted, q.gridPoints, 100.0 * q.within3 / q.accepted, q.large,
              q.large ? 100.0 * q.largeWithin3 / q.large : 0.0);
  return q;
}

TEST(MatchRealFrames, AcceptedMatchesAgreeWithTheReferenceFlow) {
#ifdef VEMO_SANITIZE_BUILD
  GTEST_SKIP() << "a minute under the sanitizers; the small searches cover the same code";
#endif
  int found = 0;
  if (exists(std::string(VEMO_DATA_DIR) + "/middlebury_rubberwhale/gt.flo")) {
    ++found;
    const MatchQuality q = measure("middlebury_rubberwhale");  // small motions, real scene
    EXPECT_GT(q.accepted, q.gridPoints / 3);
    EXPECT_GT(q.within3, q.accepted * 95 / 100);
  }
  if (exists(std::string(VEMO_DATA_DIR) + "/chairs_0/gt.flo")) {
    ++found;
    const MatchQuality q = measure("chairs_0");  // motions up to about 110 px
    EXPECT_GT(q.accepted, q.gridPoints / 10);
    EXPECT_GT(q.within3, q.accepted * 65 / 100);
    EXPECT_GT(q.large, 100);
    EXPECT_GT(q.largeWithin3, q.large / 2);
  }
  if (found == 0) GTEST_SKIP() << "no frame pairs under " << VEMO_DATA_DIR;
}

}  // namespace
}  // namespace flowcore
