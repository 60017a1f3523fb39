// HOG creation and descriptor matching of the CPU backend at 640 x 480 on a
// textured pair whose content moved by (13, -7). Run with OMP_NUM_THREADS=1
// for the single-core cost; the CPU column counts the main thread only.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "backends/cpu/confidence.h"
#include "backends/cpu/hog.h"
#include "backends/cpu/hog_match.h"
#include "matching/match_test_util.h"
#include "pixel/hog.h"

namespace {

using vemo::match_testing::Frame;

constexpr int kH = 480, kW = 640, kPitch = 640;

struct Pair {
  Frame f1 = vemo::match_testing::texturedFrame(kH, kW, kPitch, 21);
  Frame f2 = vemo::match_testing::texturedFrame(kH, kW, kPitch, 21, 13, -7);
};

const Pair& pair() {
  static const Pair p;
  return p;
}

void BM_HogCreation(benchmark::State& state) {
  const Pair& p = pair();
  Frame hog(kH, kW, kPitch, vemo::kHogBins);
  for (auto _ : state) {
    vemo::cpu::gComputeHOG(p.f1.ptr(), hog.ptr(), 3, vemo::kHogBins, kH, kW, kPitch);
    vemo::cpu::gComputeHOG(p.f2.ptr(), hog.ptr(), 3, vemo::kHogBins, kH, kW, kPitch);
    benchmark::DoNotOptimize(hog.data.data());
  }
}
BENCHMARK(BM_HogCreation)->Unit(benchmark::kMillisecond);

// The matching phase of the driver: cornerness, energies, mean, forward
// search over the full grid, backward search from its results, consistency.
void BM_HogMatch(benchmark::State& state) {
  const Pair& p = pair();
  Frame hog1(kH, kW, kPitch, vemo::kHogBins), hog2(kH, kW, kPitch, vemo::kHogBins);
  Frame e1(kH, kW, kPitch, 1), e2(kH, kW, kPitch, 1), conf(kH, kW, kPitch, 1);
  Frame u(kH, kW, kPitch, 1), v(kH, kW, kPitch, 1), weight(kH, kW, kPitch, 1);
  vemo::cpu::gComputeHOG(p.f1.ptr(), hog1.ptr(), 3, vemo::kHogBins, kH, kW, kPitch);
  vemo::cpu::gComputeHOG(p.f2.ptr(), hog2.ptr(), 3, vemo::kHogBins, kH, kW, kPitch);
  std::vector<int> mx, my;
  for (int y = 12; y < kH - 12; y += 4)
    for (int x = 12; x < kW - 12; x += 4) {
      mx.push_back(x);
      my.push_back(y);
    }
  const int n = (int)mx.size();
  std::vector<int> fx(n), fy(n), bx(n), by(n);
  std::vector<float> fd(n), fd2(n), bd(n), bd2(n);
  for (auto _ : state) {
    std::fill(fx.begin(), fx.end(), 0);
    std::fill(fy.begin(), fy.end(), 0);
    std::fill(bx.begin(), bx.end(), 0);
    std::fill(by.begin(), by.end(), 0);
    vemo::cpu::gComputeConfidence(p.f1.ptr(), conf.ptr(), kH, kW, kPitch, 3);
    vemo::cpu::computeEnergy(hog1.ptr(), e1.ptr(), kH, kW, kPitch, vemo::kHogBins);
    vemo::cpu::computeEnergy(hog2.ptr(), e2.ptr(), kH, kW, kPitch, vemo::kHogBins);
    const float average = vemo::cpu::gCompute2DSum(conf.ptr(), kH, kW, kPitch) / (float)(kW * kH);
    vemo::cpu::HOGMatch(p.f1.ptr(), p.f2.ptr(), hog1.ptr(), hog2.ptr(), conf.ptr(), 1, e1.ptr(), e2.ptr(), average,
                        fx.data(), fy.data(), fd.data(), fd2.data(), mx.data(), my.data(), n, kH, kW, kPitch);
    vemo::cpu::HOGMatch(p.f2.ptr(), p.f1.ptr(), hog2.ptr(), hog1.ptr(), conf.ptr(), 0, e2.ptr(), e1.ptr(), average,
                        bx.data(), by.data(), bd.data(), bd2.data(), fx.data(), fy.data(), n, kH, kW, kPitch);
    vemo::cpu::consistencyCheck(mx.data(), my.data(), fx.data(), fy.data(), bx.data(), by.data(), fd.data(),
                                fd2.data(), n, weight.ptr(), u.ptr(), v.ptr(), kH, kW, kPitch);
    benchmark::DoNotOptimize(weight.data.data());
  }
  state.counters["points"] = n;
}
BENCHMARK(BM_HogMatch)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace
