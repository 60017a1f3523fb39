// Device time of the CUDA stages a pair is made of, each iteration ending
// with a wait: one level's fixed-point step (motion tensors, diffusivity,
// assembly, solver passes), the resampling and warping between levels, the
// HOG fields, the descriptor search and a level run in one thread block.
// VEMO_BENCH_SIZE=WxH sets the frame (default 640x480) and
// VEMO_BENCH_MATCH_SIZE the search's (default the frame's): on a simulated
// GPU, scripts/gpu-simulated-speed.sh runs each benchmark once at sizes the
// simulator's timing model finishes in minutes and reads the cycles of
// every kernel from its log.
#include <benchmark/benchmark.h>

#if defined(VEMO_HAVE_CUDA)
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/matching_stages.h"
#include "image/synthetic.h"
#include "matching/hog_match_driver.h"
#include "pixel/hog.h"
#include "variational/nonlinear_iteration.h"
#include "variational/pcg.h"
#include "variational/scratch.h"

namespace {

using namespace vemo;

// The simulator's log shows the kernels of the timed loop after this line
// (the set-up's come before it).
void markTimedWork() {
  std::printf("vemo-bench: timed work begins\n");
  std::fflush(stdout);
}

struct Size {
  int width, height;
};

Size sizeFrom(const char* variable, Size fallback) {
  const char* text = std::getenv(variable);
  Size s = fallback;
  if (text != nullptr && std::sscanf(text, "%dx%d", &s.width, &s.height) != 2) s = fallback;
  return s;
}

// A CUDA backend and a shifted synthetic pair on it (three channels), with
// the planes a level works on.
struct DevicePair {
  std::unique_ptr<Backend> backend = makeCudaBackend();
  int height, width, pitch;
  std::size_t plane;
  Buffer frame1, frame2, ones, geo, conf, u, v, out;

  explicit DevicePair(Size s) : height(s.height), width(s.width) {
    if (!backend) return;
    Backend& b = *backend;
    pitch = b.pitchFor(width);
    plane = static_cast<std::size_t>(pitch) * height;
    CTensor<float> f1, f2, truth;
    NSynthetic::makeShiftedPair(width, height, 2.5f, -1.5f, 3, f1, f2, truth);
    frame1 = uploadRows(b, f1.data, width, 3 * height, pitch);
    frame2 = uploadRows(b, f2.data, width, 3 * height, pitch);
    std::vector<float> one(static_cast<std::size_t>(width) * height, 1.0f), g(one.size()), c(one.size());
    for (std::size_t i = 0; i < g.size(); ++i) {
      g[i] = (i % 7 == 0) ? 1.0f : 0.0f;
      c[i] = (i % 7 == 0) ? 0.5f : 0.0f;
    }
    ones = uploadRows(b, one.data(), width, height, pitch);
    geo = uploadRows(b, g.data(), width, height, pitch);
    conf = uploadRows(b, c.data(), width, height, pitch);
    u = b.allocate(plane);
    v = b.allocate(plane);
    out = b.allocate(3 * plane);
    b.clear(u.data(), plane);
    b.clear(v.data(), plane);
  }
};

// The fixed-point iterations of one level on the pair, then a wait.
void levelStep(DevicePair& p, SolverScratch& scratch, int fixedPoint, int solver) {
  gNonLinearIteration(*p.backend, p.frame1.data(), p.frame2.data(), p.ones.data(), p.geo.data(), p.geo.data(),
                      p.conf.data(), 1, p.u.data(), p.v.data(), p.height, p.width, p.pitch, 3, 30.0f, 300.0f, 5.0f,
                      fixedPoint, solver, scratch.cg(), scratch.fp());
  p.backend->synchronize();
}

// One level: fixed-point and solver iterations from the benchmark's
// arguments (the kernels of a level, of a fixed-point step and of a solver
// iteration each show in the simulator's log).
void BM_CudaLevel(benchmark::State& st) {
  DevicePair p(sizeFrom("VEMO_BENCH_SIZE", {640, 480}));
  if (!p.backend) return st.SkipWithError("no CUDA device");
  Backend& b = *p.backend;
  if (auto* cuda = dynamic_cast<CudaBackend*>(&b)) cuda->setRecording(false);
  SolverScratch scratch(b, p.plane);
  markTimedWork();
  for (auto _ : st) {
    levelStep(p, scratch, static_cast<int>(st.range(0)), static_cast<int>(st.range(1)));
  }
}
// Three shapes of iteration, so that the kernels of a level, of a
// fixed-point step and of a solver iteration can be told apart by count.
BENCHMARK(BM_CudaLevel)->Args({1, 2})->Args({1, 3})->Args({2, 2})->Unit(benchmark::kMillisecond);
// A level below the one-block size (default iterations): one launch.
void BM_CudaLevelInOneBlock(benchmark::State& st) {
  DevicePair p(Size{64, 63});
  if (!p.backend) return st.SkipWithError("no CUDA device");
  Backend& b = *p.backend;
  SolverScratch scratch(b, p.plane);
  markTimedWork();
  for (auto _ : st) {
    levelStep(p, scratch, 5, 10);
  }
}
BENCHMARK(BM_CudaLevelInOneBlock)->Unit(benchmark::kMillisecond);

// The solver alone (its kernels are most of a level's time): a
// diagonally dominant system of the level's shape, two iterations.
void BM_CudaSolve(benchmark::State& st) {
  DevicePair p(sizeFrom("VEMO_BENCH_SIZE", {640, 480}));
  if (!p.backend) return st.SkipWithError("no CUDA device");
  Backend& b = *p.backend;
  std::vector<float> a(12 * p.plane, -0.1f), rhs(2 * p.plane, 1.0f);
  for (std::size_t i = 0; i < p.plane; ++i) a[i] = a[3 * p.plane + i] = 2.0f;
  const Buffer A = uploadRows(b, a.data(), p.pitch, 12 * p.height, p.pitch);
  const Buffer B = uploadRows(b, rhs.data(), p.pitch, 2 * p.height, p.pitch);
  SolverScratch scratch(b, p.plane);
  markTimedWork();
  for (auto _ : st) {
    gPCG(b, A.data(), B.data(), p.u.data(), p.v.data(), p.height, p.width, p.pitch, 2, scratch.cg());
    b.synchronize();
  }
}
BENCHMARK(BM_CudaSolve)->Unit(benchmark::kMillisecond);

// Between levels: the frames and the match field reduced to the next level
// (eta 0.95), the flow enlarged back, the second frame warped.
void BM_CudaResampleAndWarp(benchmark::State& st) {
  DevicePair p(sizeFrom("VEMO_BENCH_SIZE", {640, 480}));
  if (!p.backend) return st.SkipWithError("no CUDA device");
  Backend& b = *p.backend;
  const int hs = p.height * 95 / 100, ws = p.width * 95 / 100, ps = b.pitchFor(ws);
  const std::size_t small = static_cast<std::size_t>(ps) * hs;
  Buffer level = b.allocate(3 * small), field = b.allocate(3 * small), flow = b.allocate(small);
  b.clear(flow.data(), small);
  const float* const in[3] = {p.geo.data(), p.geo.data(), p.conf.data()};
  float* const outField[3] = {field.data(), field.data() + small, field.data() + 2 * small};
  markTimedWork();
  for (auto _ : st) {
    b.downsampleChannels(p.frame1.data(), p.plane, level.data(), small, 3, p.height, p.width, p.pitch, hs, ws, ps);
    b.downsampleMatches(in, outField, p.height, p.width, p.pitch, hs, ws, ps);
    b.interpolate(p.u.data(), p.height, p.width, p.pitch, flow.data(), hs, ws, ps, 1.0f / 0.95f);
    b.scale(p.u.data(), p.height, p.width, p.pitch, 1.0f / 0.95f);
    b.warpMotion(p.out.data(), p.u.data(), p.v.data(), p.frame2.data(), p.frame1.data(), 3, p.conf.data(), p.height,
                 p.width, p.pitch);
    b.synchronize();
  }
}
BENCHMARK(BM_CudaResampleAndWarp)->Unit(benchmark::kMillisecond);

// The fields the search reads, for one frame: HOG, cornerness, energy.
void BM_CudaHogFields(benchmark::State& st) {
  DevicePair p(sizeFrom("VEMO_BENCH_SIZE", {640, 480}));
  if (!p.backend) return st.SkipWithError("no CUDA device");
  Backend& b = *p.backend;
  const std::unique_ptr<MatchingStages> m = makeMatchingStages(b);
  Buffer hog = b.allocate(kHogBins * p.plane), energy = b.allocate(p.plane);
  markTimedWork();
  for (auto _ : st) {
    m->computeHOG(p.frame1.data(), hog.data(), 3, kHogBins, p.height, p.width, p.pitch);
    m->computeConfidence(p.frame1.data(), p.conf.data(), p.height, p.width, p.pitch, 3);
    m->computeEnergy(hog.data(), energy.data(), p.height, p.width, p.pitch, kHogBins);
    b.synchronize();
  }
}
BENCHMARK(BM_CudaHogFields)->Unit(benchmark::kMillisecond);

// The whole matching stage (both directions' searches and the consistency
// check) on its own frame size.
void BM_CudaMatching(benchmark::State& st) {
  DevicePair p(sizeFrom("VEMO_BENCH_MATCH_SIZE", sizeFrom("VEMO_BENCH_SIZE", {640, 480})));
  if (!p.backend) return st.SkipWithError("no CUDA device");
  Backend& b = *p.backend;
  const std::unique_ptr<MatchingStages> m = makeMatchingStages(b);
  markTimedWork();
  for (auto _ : st) {
    gCreateAndMatchHOG(b, *m, p.frame1.data(), p.frame2.data(), p.u.data(), p.v.data(), p.conf.data(), p.height,
                       p.width, p.pitch, 3);
    b.synchronize();
  }
}
BENCHMARK(BM_CudaMatching)->Unit(benchmark::kMillisecond);

}  // namespace
#endif
