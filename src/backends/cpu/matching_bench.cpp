// HOG creation and descriptor matching of the CPU backend at 640 x 480 on a
// textured pair whose content moved by (13, -7).
#include <benchmark/benchmark.h>

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

// Cornerness, energies, mean, and the forward search over the full grid.
void BM_HogMatchForward(benchmark::State& state) {
  const Pair& p = pair();
  Frame hog1(kH, kW, kPitch, vemo::kHogBins), hog2(kH, kW, kPitch, vemo::kHogBins);
  Frame e1(kH, kW, kPitch, 1), e2(kH, kW, kPitch, 1), conf(kH, kW, kPitch, 1);
  vemo::cpu::gComputeHOG(p.f1.ptr(), hog1.ptr(), 3, vemo::kHogBins, kH, kW, kPitch);
  vemo::cpu::gComputeHOG(p.f2.ptr(), hog2.ptr(), 3, vemo::kHogBins, kH, kW, kPitch);
  std::vector<int> mx, my;
  for (int y = 12; y < kH - 12; y += 4)
    for (int x = 12; x < kW - 12; x += 4) {
      mx.push_back(x);
      my.push_back(y);
    }
  const int n = (int)mx.size();
  std::vector<int> bx(n), by(n);
  std::vector<float> d1(n), d2(n);
  for (auto _ : state) {
    vemo::cpu::gComputeConfidence(p.f1.ptr(), conf.ptr(), kH, kW, kPitch, 3);
    vemo::cpu::computeEnergy(hog1.ptr(), e1.ptr(), kH, kW, kPitch, vemo::kHogBins);
    vemo::cpu::computeEnergy(hog2.ptr(), e2.ptr(), kH, kW, kPitch, vemo::kHogBins);
    const float average = vemo::cpu::gCompute2DSum(conf.ptr(), kH, kW, kPitch) / (float)(kW * kH);
    vemo::cpu::HOGMatch(p.f1.ptr(), p.f2.ptr(), hog1.ptr(), hog2.ptr(), conf.ptr(), 1, e1.ptr(), e2.ptr(), average,
                        bx.data(), by.data(), d1.data(), d2.data(), mx.data(), my.data(), n, kH, kW, kPitch);
    benchmark::DoNotOptimize(bx.data());
  }
  state.counters["points"] = n;
}
BENCHMARK(BM_HogMatchForward)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
