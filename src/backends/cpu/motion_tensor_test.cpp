#include "variational/motion_tensors.h"

#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <vector>

#include "backends/cpu/cpu_backend.h"

#include "backends/cpu/plane_test_util.h"

using vemo::testing_util::Planes;

namespace {

struct TensorCase {
  int h, w, p, n;
  Planes f1, f2, ST, ST2, conf;
  TensorCase(int h_, int w_, int p_, int n_)
      : h(h_), w(w_), p(p_), n(n_), f1(h, w, p, n), f2(h, w, p, n), ST(h, w, p, 6), ST2(h, w, p, 6), conf(h, w, p) {
    conf.fill([](int, int, int) { return 1.0f; });
  }
  void run() {
    vemo::CpuBackend backend;
    std::vector<float> derivatives(8 * static_cast<size_t>(p) * h);
    vemo::MakeST(backend, f1.ptr(), f2.ptr(), ST.ptr(), ST2.ptr(), conf.ptr(), derivatives.data(), h, w, p, n);
  }
};

}  // namespace

TEST(MotionTensor, LinearRampGivesKnownProductsSummedOverChannels) {
  // Channel c: I1 = a_c x + b_c y, I2 = I1 + z_c, so Ix = a, Iy = b, Iz = z
  // and every second derivative vanishes away from the borders.
  const float a[3] = {2.0f, -1.0f, 0.5f}, b[3] = {-3.0f, 4.0f, 1.0f}, z[3] = {5.0f, 0.0f, -2.0f};
  TensorCase k(37, 35, 41, 3);
  k.f1.fill([&](int x, int y, int c) { return a[c] * x + b[c] * y; });
  k.f2.fill([&](int x, int y, int c) { return a[c] * x + b[c] * y + z[c]; });
  k.run();
  double J[6] = {0, 0, 0, 0, 0, 0};
  for (int c = 0; c < 3; ++c) {
    const double w = 1.0 / std::sqrt((double)a[c] * a[c] + (double)b[c] * b[c] + 1e-6);
    const double e[6] = {a[c] * a[c], b[c] * b[c], z[c] * z[c], a[c] * b[c], a[c] * z[c], b[c] * z[c]};
    for (int i = 0; i < 6; ++i) J[i] += w * e[i];
  }
  for (int y = 4; y < k.h - 4; ++y)
    for (int x = 4; x < k.w - 4; ++x)
      for (int i = 0; i < 6; ++i) {
        ASSERT_NEAR(k.ST.at(x, y, i), J[i], 2e-4 * (1 + std::fabs(J[i]))) << "plane " << i << " at " << x << "," << y;
        ASSERT_NEAR(k.ST2.at(x, y, i), 0.0f, 2e-3) << "plane " << i << " at " << x << "," << y;
      }
  EXPECT_TRUE(k.ST.paddingIntact());
  EXPECT_TRUE(k.ST2.paddingIntact());
}

TEST(MotionTensor, FlatRegionsGiveZeroNotNaNZeroConfidenceAddsNothingAndCallsAccumulate) {
  TensorCase k(18, 17, 20, 3);
  k.f1.fill([](int x, int, int) { return x < 8 ? 50.0f : 50.0f + x; });
  k.f2 = k.f1;
  k.ST.fill([](int, int, int) { return 7.0f; });
  k.ST2.fill([](int, int, int) { return 7.0f; });
  k.conf.at(12, 9) = 0.0f;
  k.run();
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(k.ST.at(2, 5, i), 7.0f) << "flat pixel, plane " << i;
    EXPECT_EQ(k.ST2.at(2, 5, i), 7.0f) << i;
    EXPECT_EQ(k.ST.at(12, 9, i), 7.0f) << "zero confidence, plane " << i;
    EXPECT_EQ(k.ST2.at(12, 9, i), 7.0f) << i;
  }
  EXPECT_GT(k.ST.at(12, 8, 0), 7.0f);
  TensorCase twice(16, 15, 19, 1);
  twice.f1.fillRandom(31);
  twice.f2.fillRandom(32);
  twice.run();
  const Planes once = twice.ST;
  twice.run();
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 15; ++x) ASSERT_FLOAT_EQ(twice.ST.at(x, y, 4), 2.0f * once.at(x, y, 4));
}

// The CPU backend forms the derivatives a few rows at a time instead of as
// planes. Its tensors must have the bits of the composed passes everywhere:
// at the block-dependent borders of the tiled passes (widths and heights off
// and on the 16-pixel blocks, shorter than the mask), at the seams of its
// pieces and tasks, with one or three threads.
TEST(MotionTensor, RowByRowPassGivesTheBitsOfTheComposedPasses) {
  struct Composed : vemo::CpuBackend {
    void motionTensors(const float* f1, const float* f2, float* ST, float* ST2, const float* conf, float* d, int h,
                       int w, int p, int n, const float* mask) override {
      Backend::motionTensors(f1, f2, ST, ST2, conf, d, h, w, p, n, mask);
    }
  };
  const int threads = omp_get_max_threads();
  const int sizes[][4] = {{3, 2, 5, 1}, {4, 9, 9, 3}, {37, 53, 60, 3}, {70, 129, 131, 1}, {161, 80, 96, 3}};
  for (int t : {1, 3}) {
    omp_set_num_threads(t);
    for (const auto& s : sizes) {
      TensorCase fused(s[0], s[1], s[2], s[3]), composed(s[0], s[1], s[2], s[3]);
      for (TensorCase* k : {&fused, &composed}) {
        k->f1.fillRandom(51);
        k->f2.fillRandom(52);
        k->conf.fillRandom(53, 0.0f, 1.0f);
        k->ST.fillRandom(54, -1.0f, 1.0f);
        k->ST2.fillRandom(55, -1.0f, 1.0f);
      }
      fused.run();
      Composed backend;
      std::vector<float> derivatives(8 * static_cast<size_t>(s[2]) * s[0]);
      vemo::MakeST(backend, composed.f1.ptr(), composed.f2.ptr(), composed.ST.ptr(), composed.ST2.ptr(),
                       composed.conf.ptr(), derivatives.data(), s[0], s[1], s[2], s[3]);
      for (int i = 0; i < 6; ++i)
        for (int y = 0; y < s[0]; ++y)
          for (int x = 0; x < s[1]; ++x) {
            ASSERT_TRUE(vemo::testing_util::sameBits(fused.ST.at(x, y, i), composed.ST.at(x, y, i)))
                << t << " threads, " << s[0] << "x" << s[1] << " plane " << i << " at " << x << "," << y;
            ASSERT_TRUE(vemo::testing_util::sameBits(fused.ST2.at(x, y, i), composed.ST2.at(x, y, i)))
                << t << " threads, " << s[0] << "x" << s[1] << " plane " << i << " at " << x << "," << y;
          }
    }
  }
  omp_set_num_threads(threads);
}
