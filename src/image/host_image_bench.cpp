// Timings of the host image stages on a real frame (Sintel, 1024 x 436).
// Skipped when the frames are absent.
#include <benchmark/benchmark.h>

#include <string>

#include "image/filter.h"
#include "image/recursive_smooth.h"
#include "image/tensor.h"

namespace {

// The frames lie beside the repository: <root>/../shared/data/flow.
std::string framePath() {
  std::string file = __FILE__;
  const std::string self = "src/image/host_image_bench.cpp";
  const std::string root = file.substr(0, file.size() - self.size());
  return root + "../shared/data/flow/sintel_clean_alley_1/frame1.ppm";
}

const std::string kFrame = framePath();

bool loadFrame(CTensor<float>& t, benchmark::State& state) {
  try {
    t.readFromPPM(kFrame.c_str());
    return true;
  } catch (...) {
    state.SkipWithError("frame not available");
    return false;
  }
}

void BM_ReadPpm(benchmark::State& state) {
  CTensor<float> t;
  if (!loadFrame(t, state)) return;
  for (auto _ : state) t.readFromPPM(kFrame.c_str());
}
BENCHMARK(BM_ReadPpm)->Unit(benchmark::kMillisecond);

// Arg 0: rows only, 1: columns only.
void BM_RecursiveSmooth(benchmark::State& state) {
  CTensor<float> frame;
  if (!loadFrame(frame, state)) return;
  CTensor<float> t(frame);
  for (auto _ : state) {
    if (state.range(0) == 0) {
      NFilter::recursiveSmoothX(t, 0.8f);
    } else {
      NFilter::recursiveSmoothY(t, 0.8f);
    }
    benchmark::DoNotOptimize(t.data);
  }
}
BENCHMARK(BM_RecursiveSmooth)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_MaskFilterXY(benchmark::State& state) {
  CTensor<float> frame;
  if (!loadFrame(frame, state)) return;
  const CSmooth<float> g(static_cast<float>(state.range(0)) / 10.0f, 3.0f);
  CTensor<float> tmp(frame.xSize, frame.ySize, frame.zSize), out(tmp);
  for (auto _ : state) {
    NFilter::filter(frame, tmp, g, 1, 1);
    NFilter::filter(tmp, out, 1, g, 1);
    benchmark::DoNotOptimize(out.data);
  }
}
BENCHMARK(BM_MaskFilterXY)->Arg(8)->Arg(30)->Unit(benchmark::kMillisecond);

void BM_BoxFilterXY(benchmark::State& state) {
  CTensor<float> frame;
  if (!loadFrame(frame, state)) return;
  CTensor<float> tmp(frame.xSize, frame.ySize, frame.zSize), out(tmp);
  for (auto _ : state) {
    NFilter::boxFilterX(frame, tmp, 9);
    NFilter::boxFilterY(tmp, out, 9);
    benchmark::DoNotOptimize(out.data);
  }
}
BENCHMARK(BM_BoxFilterXY)->Unit(benchmark::kMillisecond);

void BM_Pyramid(benchmark::State& state) {
  CTensor<float> frame;
  if (!loadFrame(frame, state)) return;
  for (auto _ : state) {
    CTensor<float> t(frame);
    t.downsample(973, 414);
    t.upsampleBilinear(1024, 436);
    benchmark::DoNotOptimize(t.data);
  }
}
BENCHMARK(BM_Pyramid)->Unit(benchmark::kMillisecond);

}  // namespace
