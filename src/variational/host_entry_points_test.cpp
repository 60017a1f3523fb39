// The host-buffer entry points of the solver give exactly what the
// backend-resident functions give on the same data: dense host rows go into
// pitched backend planes and come back without mixing up rows, planes or the
// padding.
#include "variational/host_entry_points.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "variational/nonlinear_iteration.h"
#include "variational/pcg.h"
#include "variational/scratch.h"
#include "image/synthetic.h"
#include "pixel/system_matrix.h"
#include "support/solver_fixtures.h"

namespace vemo {
namespace {

using testing::TestImage;
using testing::uniformNoise;

// A textured pair of 37 x 23 pixels (rows padded to 48 floats) shifted by
// (1.3, -0.7), in backend planes and in dense host arrays.
struct Pair {
  static constexpr int h = 23, w = 37;
  Pair(Backend& b) : f1(b, h, w, 3), f2(b, h, w, 3) {
    NSynthetic::makeShiftedPair(w, h, 1.3f, -0.7f, 9, t1, t2, flow);
    f1.fill([&](int x, int y, int k) { return t1(x, y, k); });
    f2.fill([&](int x, int y, int k) { return t2(x, y, k); });
  }
  CTensor<float> t1, t2, flow;
  TestImage f1, f2;
};

std::vector<float> dense(const TestImage& img) { return img.dense(); }

TEST(HostSolverEntryPoints, GiveTheBackendResultsForPaddedRows) {
  CpuBackend backend;
  Pair pair(backend);
  const int h = Pair::h, w = Pair::w, n = h * w;
  ASSERT_NE(backend.pitchFor(w), w);

  // Match field: some pixels matched, the rest not.
  TestImage geoU(backend, h, w), geoV(backend, h, w), geoConf(backend, h, w), conf(backend, h, w);
  geoU.fill(uniformNoise(1, -2.0f, 2.0f));
  geoV.fill(uniformNoise(2, -2.0f, 2.0f));
  geoConf.fill([](int x, int y, int) { return (x + y) % 3 == 0 ? 0.5f : 0.0f; });
  conf.fill([](int, int, int) { return 1.0f; });
  TestImage u(backend, h, w), v(backend, h, w);
  u.fill(uniformNoise(3, -0.5f, 0.5f));
  v.fill(uniformNoise(4, -0.5f, 0.5f));
  std::vector<float> hu = dense(u), hv = dense(v);

  // One level's fixed-point iterations.
  SolverScratch scratch(backend, static_cast<std::size_t>(u.pitch) * h);
  gNonLinearIteration(backend, pair.f1.data(), pair.f2.data(), conf.data(), geoU.data(), geoV.data(),
                      geoConf.data(), 1, u.data(), v.data(), h, w, u.pitch, 3, 30.0f, 300.0f, 5.0f, 3, 7,
                      scratch.cg(), scratch.fp());
  NonLinearIteration(pair.t1.data, pair.t2.data, dense(conf).data(), dense(geoU).data(), dense(geoV).data(),
                     dense(geoConf).data(), 1, hu.data(), hv.data(), h, w, 3, 30.0f, 300.0f, 5.0f, 3, 7);
  EXPECT_EQ(hu, dense(u));
  EXPECT_EQ(hv, dense(v));
  EXPECT_NE(hu, std::vector<float>(n, 0.0f));

  // One conjugate-gradient solve of the system the last iteration built.
  const FPtmp& fp = scratch.fp();
  std::vector<float> matrix(kMatrixPlanes * n), rhs(2 * n);
  backend.download(matrix.data(), fp.devMatrix, u.pitch, w, kMatrixPlanes * h);
  backend.download(rhs.data(), fp.b, u.pitch, w, 2 * h);
  TestImage x(backend, h, w, 2);
  x.fill(uniformNoise(5, -0.1f, 0.1f));
  const std::vector<float> start = dense(x);
  std::vector<float> du(start.begin(), start.begin() + n), dv(start.begin() + n, start.end());
  gPCG(backend, fp.devMatrix, fp.b, x.data(0), x.data(1), h, w, u.pitch, 6, scratch.cg());
  const int updates = backend.cgIterations();
  ASSERT_GT(updates, 0);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(PCG(matrix.data(), rhs.data(), du.data(), dv.data(), h, w, 6), updates);
  const std::string printed = ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(printed.rfind("Time= ", 0), 0u) << printed;
  EXPECT_NE(printed.find(" ms\n"), std::string::npos) << printed;
  std::vector<float> both(du);
  both.insert(both.end(), dv.begin(), dv.end());
  EXPECT_EQ(both, dense(x));
}

TEST(HostSolverEntryPoints, RefuseNullArraysAndInvalidSizes) {
  std::vector<float> a(12 * 6, 1.0f);
  ::testing::internal::CaptureStderr();
  EXPECT_THROW(PCG(a.data(), nullptr, a.data(), a.data(), 2, 3, 5), std::invalid_argument);
  EXPECT_THROW(PCG(a.data(), a.data(), a.data(), a.data(), 0, 3, 5), std::invalid_argument);
  EXPECT_THROW(NonLinearIteration(a.data(), a.data(), a.data(), a.data(), a.data(), a.data(), 1, a.data(), a.data(), 2,
                                  3, 0, 30, 300, 5, 1, 1),
               std::invalid_argument);
  EXPECT_THROW(NonLinearIteration(a.data(), a.data(), nullptr, a.data(), a.data(), a.data(), 1, a.data(), a.data(), 2,
                                  3, 1, 30, 300, 5, 1, 1),
               std::invalid_argument);
  EXPECT_THROW(variationalFlowVemo(a.data(), a.data(), a.data(), nullptr, a.data(), a.data(), a.data(), 1, 2, 3, 1,
                                   0, 30, 300, 5, 0.9f, 1, 1),
               std::invalid_argument);
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("PCG"), std::string::npos) << err;
  EXPECT_NE(err.find("NonLinearIteration"), std::string::npos) << err;
}

}  // namespace
}  // namespace vemo
