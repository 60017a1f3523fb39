// The matching term's purpose: a textured object moving far more than the
// coarse-to-fine scheme can follow is recovered once descriptor matches enter
// the energy, and lost without them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "backends/cpu/cpu_backend.h"
#include "backends/cpu/cpu_matching_stages.h"
#include "variational/variational_flow.h"
#include "image/recursive_smooth.h"
#include "image/synthetic.h"
#include "image/tensor.h"
#include "matching/hog_match_driver.h"

namespace vemo {
namespace {

struct Scene {
  int width, height;
  int objX, objY, objSize;  // the object's square in frame 1
  int moveX, moveY;         // object motion
  int bgX, bgY;             // background motion
  bool inObject(int x, int y) const {
    return x >= objX && x < objX + objSize && y >= objY && y < objY + objSize;
  }
};

// Frame 1 shows the object texture over the background texture; in frame 2
// the background moved by (bgX, bgY) and the object by (moveX, moveY).
void render(const Scene& s, CTensor<float>& f1, CTensor<float>& f2) {
  const NSynthetic::CTexture background(3), object(17);
  f1 = CTensor<float>(s.width, s.height, 3, 0.0f);
  f2 = CTensor<float>(s.width, s.height, 3, 0.0f);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < s.height; ++y)
      for (int x = 0; x < s.width; ++x) {
        const std::size_t i = ((std::size_t)c * s.height + y) * s.width + x;
        f1.data[i] = (float)(s.inObject(x, y) ? object.at(x, y, c) : background.at(x, y, c));
        const int ox = x - s.moveX, oy = y - s.moveY;
        f2.data[i] = (float)(s.inObject(ox, oy) ? object.at(ox, oy, c) : background.at(x - s.bgX, y - s.bgY, c));
      }
  NFilter::recursiveSmoothX(f1, 0.8f);
  NFilter::recursiveSmoothY(f1, 0.8f);
  NFilter::recursiveSmoothX(f2, 0.8f);
  NFilter::recursiveSmoothY(f2, 0.8f);
}

TEST(MatchEndToEnd, LargeObjectMotionIsRecoveredOnlyWithTheMatchingTerm) {
#ifdef VEMO_SANITIZE_BUILD
  GTEST_SKIP() << "too slow under the sanitizers";
#endif
  const Scene s{160, 120, 40, 30, 40, 36, 18, 2, 1};
  CTensor<float> f1, f2;
  render(s, f1, f2);

  CpuBackend backend;
  CpuMatchingStages stages;
  const int pitch = backend.pitchFor(s.width);
  const std::size_t plane = (std::size_t)pitch * s.height;
  Buffer image1 = backend.allocate(3 * plane), image2 = backend.allocate(3 * plane);
  Buffer geoU = backend.allocate(plane), geoV = backend.allocate(plane), geoConf = backend.allocate(plane);
  backend.clear(image1.data(), 3 * plane);
  backend.clear(image2.data(), 3 * plane);
  backend.upload(image1.data(), pitch, f1.data, s.width, 3 * s.height);
  backend.upload(image2.data(), pitch, f2.data, s.width, 3 * s.height);
  ::testing::internal::CaptureStdout();
  gCreateAndMatchHOG(backend, stages, image1.data(), image2.data(), geoU.data(), geoV.data(), geoConf.data(),
                     s.height, s.width, pitch, 3);

  double objectEpe[2], overallEpe[2];
  const float betas[2] = {300.0f, 0.0f};
  for (int run = 0; run < 2; ++run) {
    const FlowPlanes flow =
        gVariationalFlowVemo(backend, image1.data(), image2.data(), geoU.data(), geoV.data(), geoConf.data(), 1,
                             s.height, s.width, pitch, 3, 0.0f, 30.0f, betas[run], 5.0f, 0.95f, 5, 10);
    double object = 0.0, all = 0.0;
    int objectPixels = 0;
    for (int y = 0; y < s.height; ++y)
      for (int x = 0; x < s.width; ++x) {
        const std::size_t k = (std::size_t)y * flow.pitch + x;
        const bool inside = s.inObject(x, y);
        const double e = std::hypot(flow.u.data()[k] - (inside ? s.moveX : s.bgX),
                                    flow.v.data()[k] - (inside ? s.moveY : s.bgY));
        all += e;
        if (inside) {
          object += e;
          ++objectPixels;
        }
      }
    objectEpe[run] = object / objectPixels;
    overallEpe[run] = all / (s.width * s.height);
  }
  ::testing::internal::GetCapturedStdout();
  std::printf("object moving (%d, %d): object EPE %.2f with matching, %.2f without; overall EPE %.2f / %.2f\n",
              s.moveX, s.moveY, objectEpe[0], objectEpe[1], overallEpe[0], overallEpe[1]);
  EXPECT_LT(objectEpe[0], 10.0);
  EXPECT_GT(objectEpe[1], 30.0);
  EXPECT_LT(overallEpe[0], 0.5 * overallEpe[1]);
}

}  // namespace
}  // namespace vemo
