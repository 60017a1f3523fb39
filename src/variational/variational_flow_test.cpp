// The coarse-to-fine solver end to end on the CPU backend.
#include "variational/variational_flow.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "variational/host_flow.h"
#include "variational/nonlinear_iteration.h"
#include "variational/scratch.h"
#include "image/synthetic.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::TestImage;

struct Parameters {
  float alpha = 30.0f, beta = 300.0f, gamma = 5.0f, eta = 0.95f;
  int fixedPoint = 5, solver = 10;
};

struct HostFlow {
  std::vector<float> u, v;
};

// Runs the solver on host frames (planar, nChan planes of width x height)
// with the given match field (empty: no matches); the printed lines go to
// `printed`.
HostFlow solve(Backend& backend, const CTensor<float>& f1, const CTensor<float>& f2, const Parameters& p,
               std::string* printed = nullptr, std::vector<float> geoU = {}, std::vector<float> geoV = {},
               std::vector<float> geoConf = {}) {
  const int w = f1.xSize, h = f1.ySize;
  const std::size_t n = static_cast<std::size_t>(w) * h;
  if (geoConf.empty()) geoU = geoV = geoConf = std::vector<float>(n, 0.0f);
  HostFlow flow{std::vector<float>(n), std::vector<float>(n)};
  ::testing::internal::CaptureStdout();
  variationalFlowVemo(backend, f1.data, f2.data, flow.u.data(), flow.v.data(), geoU.data(), geoV.data(),
                      geoConf.data(), 1, h, w, f1.zSize, 0.0f, p.alpha, p.beta, p.gamma, p.eta, p.fixedPoint,
                      p.solver);
  const std::string out = ::testing::internal::GetCapturedStdout();
  if (printed != nullptr) *printed = out;
  return flow;
}

// Mean end-point error against (tu, tv) over pixels at least `margin` from
// the border (pixels near the border see content leave the frame).
double meanEndPointError(const HostFlow& f, int w, int h, int margin, const std::vector<float>& tu,
                         const std::vector<float>& tv) {
  double sum = 0.0;
  int count = 0;
  for (int y = margin; y < h - margin; ++y)
    for (int x = margin; x < w - margin; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * w + x;
      sum += std::hypot(f.u[i] - tu[i], f.v[i] - tv[i]);
      ++count;
    }
  return sum / count;
}

// A textured pair shifted by (2.5, 1.5) px. Guards against every sign,
// scale or level-to-level error of the pyramid (flow not rescaled by 1/eta,
// match planes or increments with the wrong sign, warping the wrong way).
TEST(VariationalFlow, RecoversASubpixelShiftOfATexturedPair) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(96, 80, 2.5f, 1.5f, 3, f1, f2, truth);
  CpuBackend backend;
  std::string printed;
  const HostFlow flow = solve(backend, f1, f2, Parameters(), &printed);
  const std::size_t n = 96 * 80;
  const double epe = meanEndPointError(flow, 96, 80, 8, std::vector<float>(n, 2.5f), std::vector<float>(n, 1.5f));
  RecordProperty("epe", std::to_string(epe));
  EXPECT_LT(epe, 0.02);
  EXPECT_NE(printed.find("# scales = 32 \n"), std::string::npos) << printed;
  for (const char* line : {"Solver time = ", "MakeMatrix time = ", "Interp time = ", "downsampling time = "})
    EXPECT_NE(printed.find(line), std::string::npos) << line;
}

// With a side below 15 there is one scale only: every pass (level 0 and the
// five full-size passes) restarts from zero flow on the unwarped frame with
// an all-ones mask, so the result is that of the last pass alone, which runs
// twice the solver iterations without the match term. (40 x 12: at eta 0.95
// the full-size passes are not skipped, since ceil(0.95 * 40) < 40.) Guards
// against an increment or tensor carried over from the previous pass.
TEST(VariationalFlow, SingleScaleRunEqualsTheLastPassAlone) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(40, 12, 0.7f, -0.4f, 5, f1, f2, truth);
  Parameters p;
  p.solver = 4;
  CpuBackend backend;
  std::string printed;
  const HostFlow flow = solve(backend, f1, f2, p, &printed);
  EXPECT_EQ(printed.find("# scales = 0 \n"), 0u) << printed;

  const int w = 40, h = 12, pitch = backend.pitchFor(w);
  TestImage a(backend, h, w, 3), b(backend, h, w, 3), conf(backend, h, w), zero(backend, h, w),
      u(backend, h, w), v(backend, h, w);
  backend.upload(a.data(), pitch, f1.data, w, 3 * h);
  backend.upload(b.data(), pitch, f2.data, w, 3 * h);
  backend.setValue(conf.data(), h, w, pitch, 1.0f);
  SolverScratch scratch(backend, static_cast<std::size_t>(pitch) * h);
  gNonLinearIteration(backend, a.data(), b.data(), conf.data(), zero.data(), zero.data(), zero.data(), 1, u.data(),
                      v.data(), h, w, pitch, 3, p.alpha, p.beta, p.gamma, p.fixedPoint, 2 * p.solver, scratch.cg(),
                      scratch.fp());
  EXPECT_EQ(flow.u, u.dense());
  EXPECT_EQ(flow.v, v.dense());

  // No fixed-point iterations add nothing to the flow.
  gNonLinearIteration(backend, a.data(), b.data(), conf.data(), zero.data(), zero.data(), zero.data(), 1, u.data(),
                      v.data(), h, w, pitch, 3, p.alpha, p.beta, p.gamma, 0, p.solver, scratch.cg(), scratch.fp());
  EXPECT_EQ(flow.u, u.dense());
  EXPECT_EQ(flow.v, v.dense());
}

// The flow must not depend on the thread count or on the row padding. The
// full-size levels of this frame are split into several pieces of rows, so
// every stage of the solver runs on both threads in the second run.
TEST(VariationalFlow, ThreadCountAndPaddingLeaveTheFlowBitIdentical) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(192, 144, -1.25f, 2.0f, 9, f1, f2, truth);
  Parameters p;
  p.eta = 0.8f;  // fewer levels: the test is about bits, not accuracy
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  CpuBackend tight;
  const HostFlow one = solve(tight, f1, f2, p);
  omp_set_num_threads(2);
  CpuBackend padded(16, 5);
  const HostFlow two = solve(padded, f1, f2, p);
  omp_set_num_threads(threads);
  EXPECT_EQ(one.u, two.u);
  EXPECT_EQ(one.v, two.v);
}

// Levels that repeat the size of the next coarser one are skipped with a
// message; when every pass is skipped (12 x 12 at eta 0.95: one scale, and
// ceil(0.95 * 12) = 12) the flow is zero rather than missing. Bad arguments
// are refused with a message.
TEST(VariationalFlow, DegenerateLevelsAreSkippedAndBadArgumentsRefused) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(16, 16, 0.5f, 0.5f, 2, f1, f2, truth);
  CpuBackend backend;
  Parameters p;
  p.eta = 0.999f;  // 65 scales, nearly all of them 16 x 16
  std::string printed;
  const HostFlow some = solve(backend, f1, f2, p, &printed);
  EXPECT_NE(printed.find("Increase eta or increase minimum dimension\n"), std::string::npos);
  for (float f : some.u) ASSERT_TRUE(std::isfinite(f));

  p.eta = 0.95f;
  NSynthetic::makeShiftedPair(12, 12, 0.5f, 0.5f, 2, f1, f2, truth);
  const HostFlow none = solve(backend, f1, f2, p, &printed);
  for (float f : none.u) ASSERT_EQ(f, 0.0f);
  for (float f : none.v) ASSERT_EQ(f, 0.0f);

  TestImage frame(backend, 8, 8, 3), geo(backend, 8, 8);
  auto run = [&](int pitch, int channels, float eta) {
    gVariationalFlowVemo(backend, frame.data(), frame.data(), geo.data(), geo.data(), geo.data(), 1, 8, 8, pitch,
                         channels, 0, 30, 300, 5, eta, 5, 10);
  };
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(run(frame.pitch + 1, 3, 0.95f), std::invalid_argument);
  EXPECT_THROW(run(frame.pitch, 3, 1.0f), std::invalid_argument);
  EXPECT_THROW(run(frame.pitch, 0, 0.95f), std::invalid_argument);
  EXPECT_FALSE(::testing::internal::GetCapturedStderr().empty());
}

}  // namespace
}  // namespace vemo
