// Timings of the variational solver on the CPU backend at 640 x 480: its
// stages one by one (one full-size fixed-point step's worth each) and the
// whole coarse-to-fine run with the default parameters.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <vector>

#include "variational/motion_tensors.h"
#include "backends/cpu/cpu_backend.h"
#include "variational/diffusivity.h"
#include "variational/host_flow.h"
#include "variational/nonlinear_iteration.h"
#include "variational/pcg.h"
#include "variational/scratch.h"
#include "image/synthetic.h"

namespace {

constexpr int H = 480, W = 640;

// A textured pair shifted by (2.5, 1.5), uploaded, with the scratch sets and
// one assembled system at full size.
struct Level {
  vemo::CpuBackend backend;
  int pitch = backend.pitchFor(W);
  std::size_t plane = static_cast<std::size_t>(pitch) * H;
  CTensor<float> f1, f2, truth;
  vemo::Buffer frame1 = backend.allocate(3 * plane), frame2 = backend.allocate(3 * plane);
  vemo::Buffer conf = backend.allocate(plane), zero = backend.allocate(plane);
  vemo::Buffer u = backend.allocate(plane), v = backend.allocate(plane);
  vemo::SolverScratch scratch{backend, plane};
  Level() {
    NSynthetic::makeShiftedPair(W, H, 2.5f, 1.5f, 1, f1, f2, truth);
    backend.upload(frame1.data(), pitch, f1.data, W, 3 * H);
    backend.upload(frame2.data(), pitch, f2.data, W, 3 * H);
    backend.setValue(conf.data(), H, W, pitch, 1.0f);
    backend.clear(zero.data(), plane);
    backend.clear(u.data(), plane);
    backend.clear(v.data(), plane);
    const vemo::FPtmp& fp = scratch.fp();
    backend.clear(fp.du, 2 * plane);
    backend.clear(fp.ST, 6 * plane);
    backend.clear(fp.ST2, 6 * plane);
    vemo::MakeST(backend, frame1.data(), frame2.data(), fp.ST, fp.ST2, conf.data(), fp.derivatives, H, W, pitch, 3);
    diffusivity();
    assemble();
  }
  void diffusivity() {
    const vemo::FPtmp& fp = scratch.fp();
    vemo::gDiffusivity(backend, u.data(), v.data(), fp.du, fp.du + plane, fp.diffX, fp.diffY, H, W, pitch, fp.flowSum,
                       fp.flowDerivative);
  }
  void assemble() {
    backend.assembleSystem(scratch.fp(), u.data(), v.data(), zero.data(), zero.data(), zero.data(), H, W, pitch,
                           30.0f, 300.0f, 5.0f);
  }
};

Level& level() {
  static Level l;
  return l;
}

void BM_MakeST(benchmark::State& state) {
  Level& l = level();
  const vemo::FPtmp& fp = l.scratch.fp();
  for (auto _ : state)
    vemo::MakeST(l.backend, l.frame1.data(), l.frame2.data(), fp.ST, fp.ST2, l.conf.data(), fp.derivatives, H, W,
                     l.pitch, 3);
}
BENCHMARK(BM_MakeST)->Unit(benchmark::kMillisecond);

void BM_Diffusivity(benchmark::State& state) {
  Level& l = level();
  for (auto _ : state) l.diffusivity();
}
BENCHMARK(BM_Diffusivity)->Unit(benchmark::kMillisecond);

void BM_Assembly(benchmark::State& state) {
  Level& l = level();
  for (auto _ : state) l.assemble();
}
BENCHMARK(BM_Assembly)->Unit(benchmark::kMillisecond);

// One solve of 10 iterations from zero.
void BM_Pcg10(benchmark::State& state) {
  Level& l = level();
  const vemo::FPtmp& fp = l.scratch.fp();
  for (auto _ : state) {
    l.backend.clear(fp.du, 2 * l.plane);
    vemo::gPCG(l.backend, fp.devMatrix, fp.b, fp.du, fp.du + l.plane, H, W, l.pitch, 10, l.scratch.cg());
  }
}
BENCHMARK(BM_Pcg10)->Unit(benchmark::kMillisecond);

// One level's fixed-point loop: 5 outer iterations of 10 solver iterations.
void BM_NonLinearIteration(benchmark::State& state) {
  Level& l = level();
  for (auto _ : state) {
    l.backend.clear(l.u.data(), l.plane);
    l.backend.clear(l.v.data(), l.plane);
    vemo::gNonLinearIteration(l.backend, l.frame1.data(), l.frame2.data(), l.conf.data(), l.zero.data(),
                              l.zero.data(), l.zero.data(), 1, l.u.data(), l.v.data(), H, W, l.pitch, 3, 30.0f,
                              300.0f, 5.0f, 5, 10, l.scratch.cg(), l.scratch.fp());
  }
}
BENCHMARK(BM_NonLinearIteration)->Unit(benchmark::kMillisecond);

// The whole coarse-to-fine run (67 scales and 5 full-size passes, 74 in all).
void BM_VariationalFlow640x480(benchmark::State& state) {
  Level& l = level();
  std::vector<float> u(W * H), v(W * H), geo(W * H, 0.0f);
  for (auto _ : state) {
    std::FILE* saved = stdout;  // keep the solver's report lines out of the table
    stdout = std::fopen("/dev/null", "w");
    vemo::variationalFlowVemo(l.backend, l.f1.data, l.f2.data, u.data(), v.data(), geo.data(), geo.data(),
                              geo.data(), 1, H, W, 3, 0.0f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10);
    std::fclose(stdout);
    stdout = saved;
  }
}
BENCHMARK(BM_VariationalFlow640x480)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
