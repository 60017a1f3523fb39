// Every CPU stage must give bit-identical results whatever the number of
// OpenMP threads.
#include <gtest/gtest.h>
#include <omp.h>

#include "backends/cpu/cpu_backend.h"
#include "variational/motion_tensors.h"
#include "backends/cpu/convolve.h"
#include "backends/cpu/motion_tensor.h"
#include "backends/cpu/plane_test_util.h"
#include "backends/cpu/resample.h"
#include "backends/cpu/warp.h"

using flowcore::testing_util::Planes;

namespace {

std::vector<float> runAllStages(int threads) {
  const int prev = omp_get_max_threads();
  omp_set_num_threads(threads);
  const int h = 83, w = 97, p = 104, h2 = 79, w2 = 93, p2 = 96;
  Planes f1(h, w, p, 3), f2(h, w, p, 3), u(h, w, p), v(h, w, p), conf(h, w, p);
  f1.fillRandom(1);
  f2.fillRandom(2);
  u.fillRandom(3, -4.0f, 4.0f);
  v.fillRandom(4, -4.0f, 4.0f);
  conf.fillRandom(5, -0.5f, 1.0f);
  Planes small(h2, w2, p2), weighted(h2, w2, p2), up(h, w, p), warped(h, w, p, 3), mask(h, w, p);
  Planes sx(h, w, p), sy(h, w, p), g(h, w, p), ST(h, w, p, 6), ST2(h, w, p, 6);
  const float m5[5] = {0.1f, 0.2f, 0.4f, 0.2f, 0.1f};
  flowcore::cpu::gConvolveX(sx.ptr(), f1.ptr(), h, w, p, m5, 5);
  flowcore::cpu::gConvolveY(sy.ptr(), f1.ptr(), h, w, p, m5, 5);
  flowcore::cpu::gGaussianFilter(g.ptr(), f1.ptr(1), h, w, p, 2.0f);
  flowcore::cpu::downsample(f1.ptr(), h, w, p, small.ptr(), h2, w2, p2, nullptr);
  flowcore::cpu::downsample(u.ptr(), h, w, p, weighted.ptr(), h2, w2, p2, conf.ptr());
  flowcore::cpu::gInterpolate(up.ptr(), h, w, p, small.ptr(), h2, w2, p2, 1.0f / 0.95f);
  flowcore::cpu::gWarpMotion(warped.ptr(), u.ptr(), v.ptr(), f2.ptr(), f1.ptr(), 3, mask.ptr(), h, w, p);
  flowcore::CpuBackend backend;
  std::vector<float> derivatives(8 * static_cast<size_t>(p) * h);
  flowcore::MakeST(backend, f1.ptr(), warped.ptr(), ST.ptr(), ST2.ptr(), mask.ptr(), derivatives.data(), h, w, p, 3);
  omp_set_num_threads(prev);
  std::vector<float> all;
  for (const Planes* q : {&sx, &sy, &g, &small, &weighted, &up, &warped, &mask, &ST, &ST2})
    all.insert(all.end(), q->data.begin(), q->data.end());
  return all;
}

}  // namespace

TEST(CpuStages, ResultsDoNotDependOnThreadCount) {
  const std::vector<float> one = runAllStages(1), two = runAllStages(2);
  ASSERT_EQ(one.size(), two.size());
  // memcmp: NaN (padding, empty weighted footprints) must match bit for bit.
  EXPECT_EQ(std::memcmp(one.data(), two.data(), one.size() * sizeof(float)), 0);
}
