// Timings of the CPU stages at 640 x 480 (three-channel frames where the
// pipeline uses them), on a padded pitch as the device layout has.
#include <benchmark/benchmark.h>

#include "variational/motion_tensors.h"
#include "backends/cpu/convolve.h"
#include "backends/cpu/motion_tensor.h"
#include "backends/cpu/plane_test_util.h"
#include "backends/cpu/resample.h"
#include "backends/cpu/warp.h"

using vemo::testing_util::Planes;

namespace {

constexpr int H = 480, W = 640, P = 640 + 32;  // 2688-byte rows, 128-byte aligned like cudaMallocPitch
constexpr int H2 = 456, W2 = 608, P2 = 608 + 32;

struct Frames {
  Planes f1{H, W, P, 3}, f2{H, W, P, 3}, u{H, W, P}, v{H, W, P}, conf{H, W, P};
  Frames() {
    f1.fillRandom(1);
    f2.fillRandom(2);
    u.fillRandom(3, -3.0f, 3.0f);
    v.fillRandom(4, -3.0f, 3.0f);
    conf.fillRandom(5, -0.2f, 1.0f);
  }
};

Frames& frames() {
  static Frames f;
  return f;
}

void BM_ConvolveXShort5(benchmark::State& st) {
  Planes out(H, W, P);
  const float* in = frames().f1.ptr();
  for (auto _ : st) vemo::cpu::gConvolveX(out.ptr(), in, H, W, P, vemo::kDerivativeMask5, 5);
}
BENCHMARK(BM_ConvolveXShort5)->Unit(benchmark::kMillisecond);

void BM_ConvolveYShort5(benchmark::State& st) {
  Planes out(H, W, P);
  const float* in = frames().f1.ptr();
  for (auto _ : st) vemo::cpu::gConvolveY(out.ptr(), in, H, W, P, vemo::kDerivativeMask5, 5);
}
BENCHMARK(BM_ConvolveYShort5)->Unit(benchmark::kMillisecond);

void BM_GaussianFilterSigma4(benchmark::State& st) {
  Planes out(H, W, P);
  const float* in = frames().f1.ptr();
  for (auto _ : st) vemo::cpu::gGaussianFilter(out.ptr(), in, H, W, P, 4.0f);
}
BENCHMARK(BM_GaussianFilterSigma4)->Unit(benchmark::kMillisecond);

// The argument is the level's size in percent of the frame's: 95 takes 2 x 2
// and 3 x 3 footprints, 30 footprints of about 4 x 4 to 5 x 5 cells.
void BM_DownsamplePlain(benchmark::State& st) {
  const int h = H * st.range(0) / 100, w = W * st.range(0) / 100;
  Planes out(h, w, w + 32);
  const float* in = frames().f1.ptr();
  for (auto _ : st) vemo::cpu::downsample(in, H, W, P, out.ptr(), h, w, w + 32, nullptr);
}
BENCHMARK(BM_DownsamplePlain)->Arg(95)->Arg(30)->Unit(benchmark::kMillisecond);

void BM_DownsampleWeighted(benchmark::State& st) {
  const int h = H * st.range(0) / 100, w = W * st.range(0) / 100;
  Planes out(h, w, w + 32);
  const float* in = frames().u.ptr();
  const float* conf = frames().conf.ptr();
  for (auto _ : st) vemo::cpu::downsample(in, H, W, P, out.ptr(), h, w, w + 32, conf);
}
BENCHMARK(BM_DownsampleWeighted)->Arg(95)->Arg(30)->Unit(benchmark::kMillisecond);

void BM_Interpolate(benchmark::State& st) {
  Planes src(H2, W2, P2), out(H, W, P);
  src.fillRandom(7);
  for (auto _ : st) vemo::cpu::gInterpolate(out.ptr(), H, W, P, src.ptr(), H2, W2, P2, 1.0f / 0.95f);
}
BENCHMARK(BM_Interpolate)->Unit(benchmark::kMillisecond);

void BM_WarpMotion3(benchmark::State& st) {
  Planes out(H, W, P, 3), mask(H, W, P);
  Frames& f = frames();
  for (auto _ : st)
    vemo::cpu::gWarpMotion(out.ptr(), f.u.ptr(), f.v.ptr(), f.f2.ptr(), f.f1.ptr(), 3, mask.ptr(), H, W, P);
}
BENCHMARK(BM_WarpMotion3)->Unit(benchmark::kMillisecond);


}  // namespace
