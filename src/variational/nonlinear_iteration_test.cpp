#include "variational/nonlinear_iteration.h"

#include <gtest/gtest.h>

#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "variational/scratch.h"
#include "image/synthetic.h"
#include "support/solver_fixtures.h"

namespace flowcore {
namespace {

using testing::TestImage;

// One level of a shifted pair, uploaded, with a starting flow.
struct LevelCase {
  explicit LevelCase(CpuBackend& b)
      : frame1(b, h, w, 3), frame2(b, h, w, 3), conf(b, h, w), zero(b, h, w), u(b, h, w), v(b, h, w),
        scratch(b, static_cast<std::size_t>(frame1.pitch) * h) {
    CTensor<float> f1, f2, truth;
    NSynthetic::makeShiftedPair(w, h, 1.0f, 0.5f, 4, f1, f2, truth);
    b.upload(frame1.data(), frame1.pitch, f1.data, w, 3 * h);
    b.upload(frame2.data(), frame2.pitch, f2.data, w, 3 * h);
    conf.fill([](int, int, int) { return 1.0f; });
    u.fill([](int x, int, int) { return 0.01f * x; });
    v.fill([](int, int y, int) { return -0.02f * y; });
  }
  void run(CpuBackend& b, int fixedPoint) {
    gNonLinearIteration(b, frame1.data(), frame2.data(), conf.data(), zero.data(), zero.data(), zero.data(), 1,
                        u.data(), v.data(), h, w, frame1.pitch, 3, 30.0f, 300.0f, 5.0f, fixedPoint, 10, scratch.cg(),
                        scratch.fp());
  }
  static constexpr int h = 24, w = 37;
  TestImage frame1, frame2, conf, zero, u, v;
  SolverScratch scratch;
};

// Zero outer iterations add a zero increment; a second call from the same
// flow must give the same result, so the increment (and the tensors) are
// reset at every call rather than carried over from the previous one.
TEST(NonLinearIteration, NoIterationsKeepTheFlowAndEachCallStartsFromAZeroIncrement) {
  CpuBackend backend;
  LevelCase c(backend);
  const std::vector<float> u0 = c.u.dense(), v0 = c.v.dense();
  c.run(backend, 0);
  EXPECT_EQ(c.u.dense(), u0);
  EXPECT_EQ(c.v.dense(), v0);

  c.run(backend, 3);
  const std::vector<float> u1 = c.u.dense(), v1 = c.v.dense();
  EXPECT_NE(u1, u0);
  c.u.fill([&](int x, int y, int) { return u0[y * LevelCase::w + x]; });
  c.v.fill([&](int x, int y, int) { return v0[y * LevelCase::w + x]; });
  c.run(backend, 3);
  EXPECT_EQ(c.u.dense(), u1);
  EXPECT_EQ(c.v.dense(), v1);
}

}  // namespace
}  // namespace flowcore
