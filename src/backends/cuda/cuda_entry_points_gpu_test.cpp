// The host-buffer entry points of the library on the CUDA backend against
// the same calls on the CPU backend: the filters and SOR must agree bit for
// bit, the conjugate gradient within the drift of its one-ulp dot products,
// the descriptors and the flow pair within the tolerances of the whole-run
// tests.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <random>
#include <vector>

#include "backends/cuda/cuda_gpu_test_fixture.h"
#include "driver/vemo.h"
#include "backends/backend_factory.h"
#include "variational/host_entry_points.h"
#include "variational/sor.h"
#include "image/synthetic.h"
#include "matching/host_entry_points.h"
#include "pixel/hog.h"

namespace vemo {
namespace {

class CudaEntryPoints : public testing::Test {
 protected:
  void SetUp() override {
    VEMO_NEEDS_GPU();
    device_ = chosenCudaDevice();
  }
  void TearDown() override { requestBackend(BackendRequest::Auto); }

  // Runs f(0) on the CPU backend, then f(1) on the CUDA backend.
  template <class F>
  void onBoth(F f) {
    requestBackend(BackendRequest::Cpu);
    f(0);
    requestBackend(BackendRequest::Cuda, device_);
    f(1);
  }

  int device_ = 0;

  static std::vector<float> noise(std::size_t n, unsigned seed, float lo, float hi) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (float& x : v) x = d(rng);
    return v;
  }

  static std::size_t differing(const std::vector<float>& a, const std::vector<float>& b) {
    std::size_t n = 0;
    for (std::size_t i = 0; i < a.size(); ++i) n += !(a[i] == b[i] || (std::isnan(a[i]) && std::isnan(b[i])));
    return n;
  }
};

TEST_F(CudaEntryPoints, FiltersAgreeBitForBit) {
  const int H = 37, W = 53;
  std::vector<float> in = noise(static_cast<std::size_t>(H) * W, 7, 0.0f, 255.0f);
  std::vector<float> mask2d = noise(15, 8, -0.2f, 0.4f);
  std::vector<float> mask1d = noise(9, 9, 0.0f, 0.2f);
  std::vector<float> out[2][5];
  onBoth([&](int k) {
    for (std::vector<float>& o : out[k]) o.assign(in.size(), 0.0f);
    Convolve2d(out[k][0].data(), H, W, in.data(), H, W, mask2d.data(), 3, 5);
    Convolve2d(out[k][1].data(), H, W, in.data(), H, W, mask1d.data(), 9, 1);
    GaussianFilter(out[k][2].data(), H, W, in.data(), H, W, 2.0f);  // a long mask: the texture path
    GaussianDerivativeFilter(out[k][3].data(), H, W, in.data(), H, W, 1.2f, 'x');
    GaussianDerivativeFilter(out[k][4].data(), H, W, in.data(), H, W, 1.2f, 'y');
  });
  for (int f = 0; f < 5; ++f) EXPECT_EQ(differing(out[0][f], out[1][f]), 0u) << "filter " << f;
}

TEST_F(CudaEntryPoints, SolversReachTheCpuSolution) {
  const int H = 31, W = 45;
  const std::size_t plane = static_cast<std::size_t>(H) * W;
  std::vector<float> A = noise(12 * plane, 11, -1.0f, 0.0f);
  for (std::size_t i = 0; i < plane; ++i) {
    A[i] = 5.0f + A[i];
    A[3 * plane + i] = 6.0f - A[3 * plane + i];
    A[plane + i] = A[2 * plane + i] = 0.5f * A[plane + i];
  }
  const std::vector<float> rhs = noise(2 * plane, 12, -10.0f, 10.0f);
  const std::vector<float> start = noise(2 * plane, 13, -1.0f, 1.0f);
  std::vector<float> cg[2], sor[2];
  int updates[2] = {};
  float residual[2] = {};
  onBoth([&](int k) {
    cg[k] = start;
    updates[k] = PCG(A.data(), rhs.data(), cg[k].data(), cg[k].data() + plane, H, W, 40);
    sor[k].assign(2 * plane, 0.0f);
    SORIterations(A.data(), rhs.data(), sor[k].data(), sor[k].data() + plane, start.data(), H, W, 1.5f, 20);
    residual[k] = computeResidual(A.data(), rhs.data(), sor[k].data(), sor[k].data() + plane, H, W);
  });
  EXPECT_EQ(updates[0], updates[1]);
  float largest = 0.0f, worst = 0.0f;
  for (std::size_t i = 0; i < cg[0].size(); ++i) {
    largest = std::max(largest, std::fabs(cg[0][i]));
    worst = std::max(worst, std::fabs(cg[0][i] - cg[1][i]));
  }
  EXPECT_LE(worst, 1e-5f * std::max(largest, 1.0f));
  EXPECT_EQ(differing(sor[0], sor[1]), 0u);
  EXPECT_NEAR(residual[0], residual[1], 1e-5f * std::max(residual[0], 1.0f));
}

TEST_F(CudaEntryPoints, DescriptorsAndTheFlowPairFollowTheCpu) {
  const int H = 48, W = 64, nOri = kHogBins;
  const std::vector<float> image = noise(3 * static_cast<std::size_t>(H) * W, 21, 0.0f, 255.0f);
  std::vector<float> hog[2];
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(W, H, 2.5f, -1.5f, 5, f1, f2, truth);
  CTensor<float> forward[2], backward[2];
  onBoth([&](int k) {
    hog[k].assign(static_cast<std::size_t>(nOri) * H * W, 0.0f);
    ComputeHOGGPU(image.data(), hog[k].data(), 3, nOri, H, W);
    // Simulated: three levels and fewer iterations instead of the defaults.
    if (cuda_testing::simulatedGpu())
      vemo::vemo(f1, f2, forward[k], backward[k], 0.0f, 30.0f, 300.0f, 5.0f, 0.5f, 2, 3);
    else
      vemo::vemo(f1, f2, forward[k], backward[k]);
  });
  // Device atan2 may round an orientation into the neighbouring bin.
  EXPECT_LE(differing(hog[0], hog[1]), hog[0].size() / 100);
  for (CTensor<float>* flows : {forward, backward}) {
    ASSERT_EQ(flows[0].elements(), flows[1].elements());
    double sum = 0.0;
    for (std::size_t i = 0; i < flows[0].elements(); ++i) sum += std::fabs(flows[0].data[i] - flows[1].data[i]);
    EXPECT_LE(sum / flows[0].elements(), 0.01) << (flows == forward ? "forward" : "backward");
  }
}

}  // namespace
}  // namespace vemo
