// Fixture of the GPU tests: the CUDA backend beside a CPU backend with the
// same row alignment, data mirrored into both, and comparisons of the
// results (bit for bit, or with a stated share of differences); and the gate
// every GPU test passes first.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "backends/backend_factory.h"
#include "backends/cpu/cpu_backend.h"
#include "backends/cuda/cuda_backend_factory.h"
#include "backends/cuda/device_probe.h"
#include "backends/extra_stages.h"
#include "backends/matching_stages.h"
#include "variational/scratch.h"
#include "variational/variational_flow.h"
#include "matching/hog_match_driver.h"
#include "common/env_flag.h"
#include "pixel/hog.h"

namespace vemo::cuda_testing {

// Why the GPU tests cannot run here, or "" when the device they use
// (chosenCudaDevice(): 0 unless VEMO_DEVICE names cuda:N) is usable.
inline std::string gpuMissing() {
  const int device = chosenCudaDevice();
  const CudaProbe& probe = probeCudaDevice(device);
  if (probe.usable) return "";
  return "no usable CUDA device cuda:" + std::to_string(device) + (probe.reason.empty() ? "" : ": " + probe.reason);
}

// The test (or fixture set-up) that calls this skips without a usable GPU,
// or fails when VEMO_REQUIRE_GPU is set: on a machine meant to have a GPU, a
// device that cannot be used must not pass as zero failures.
#define VEMO_NEEDS_GPU()                                                               \
  do {                                                                                 \
    const std::string vemoMissing_ = ::vemo::cuda_testing::gpuMissing();           \
    if (!vemoMissing_.empty()) {                                                       \
      if (::vemo::envFlag("VEMO_REQUIRE_GPU")) GTEST_FAIL() << "VEMO_REQUIRE_GPU is set, but " << vemoMissing_; \
      GTEST_SKIP() << vemoMissing_;                                                    \
    }                                                                                  \
  } while (0)

// Set by scripts/gpu-simulated.sh: the device is simulated on the CPU, about
// a second per launch, so the tests that run whole levels or whole runs
// choose smaller frames and fewer iterations (still levels above and below
// the one-block size, still graphs recorded and replayed) and check the
// same things.
inline bool simulatedGpu() { return envFlag("VEMO_SIMULATED_GPU"); }

// Same value, NaNs of any payload counting as equal (the two processors
// produce different default NaNs).
inline bool sameValue(float a, float b) {
  if (std::isnan(a) && std::isnan(b)) return true;
  std::uint32_t ia, ib;
  std::memcpy(&ia, &a, 4);
  std::memcpy(&ib, &b, 4);
  return ia == ib;
}

// Floats between a and b on the number line.
inline std::int64_t ulpDistance(float a, float b) {
  auto key = [](float f) {
    std::int32_t i;
    std::memcpy(&i, &f, 4);
    return i < 0 ? -static_cast<std::int64_t>(i & 0x7fffffff) : static_cast<std::int64_t>(i);
  };
  const std::int64_t d = key(a) - key(b);
  return d < 0 ? -d : d;
}

class CudaAgainstCpu : public ::testing::Test {
 protected:
  // The same data in both backends' memory, one layout.
  struct Twin {
    Buffer cpu, gpu;
    std::size_t floats = 0;
    float* c() const { return cpu.data(); }
    float* g() const { return gpu.data(); }
  };

  void SetUp() override {
    VEMO_NEEDS_GPU();
    gpu_ = makeCudaBackend(chosenCudaDevice());
    ASSERT_NE(gpu_, nullptr);
    // Rows aligned as on the device, so that both backends use one layout.
    cpu_ = std::make_unique<CpuBackend>(gpu_->pitchFor(1));
  }

  Backend& cpu() { return *cpu_; }
  Backend& gpu() { return *gpu_; }

  Twin twin(const std::vector<float>& host) {
    Twin t{cpu_->allocate(host.size()), gpu_->allocate(host.size()), host.size()};
    const int n = static_cast<int>(host.size());
    cpu_->upload(t.c(), n, host.data(), n, 1);
    gpu_->upload(t.g(), n, host.data(), n, 1);
    return t;
  }
  Twin zeros(std::size_t floats) { return twin(std::vector<float>(floats, 0.0f)); }

  // `planes` planes of height x width at the shared pitch, data from f,
  // padding zero.
  template <class F>
  std::vector<float> planes(int height, int width, int n, F f) {
    const int pitch = gpu_->pitchFor(width);
    std::vector<float> h(static_cast<std::size_t>(n) * pitch * height, 0.0f);
    for (int k = 0; k < n; ++k)
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) h[(static_cast<std::size_t>(k) * height + y) * pitch + x] = f(x, y, k);
    return h;
  }
  std::vector<float> randomPlanes(int height, int width, int n, unsigned seed, float lo, float hi) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    return planes(height, width, n, [&](int, int, int) { return d(rng); });
  }

  std::vector<float> fetch(Backend& b, const float* p, std::size_t floats) {
    std::vector<float> h(floats);
    const int n = static_cast<int>(floats);
    b.download(h.data(), p, n, n, 1);
    return h;
  }

  // Both copies hold the same floats (padding included).
  void expectSame(const Twin& t, const std::string& what) {
    const std::vector<float> a = fetch(*cpu_, t.c(), t.floats), b = fetch(*gpu_, t.g(), t.floats);
    std::size_t bad = 0, first = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
      if (!sameValue(a[i], b[i]) && bad++ == 0) first = i;
    EXPECT_EQ(bad, 0u) << what << ": first difference at float " << first << ": cpu " << a[first] << " cuda "
                       << b[first];
  }

  // At most `maxFraction` of the floats differ (for stages whose arithmetic
  // is not the same on both sides).
  void expectMostlySame(const Twin& t, const std::string& what, double maxFraction) {
    const std::vector<float> a = fetch(*cpu_, t.c(), t.floats), b = fetch(*gpu_, t.g(), t.floats);
    std::size_t bad = 0;
    for (std::size_t i = 0; i < a.size(); ++i) bad += !sameValue(a[i], b[i]);
    EXPECT_LE(static_cast<double>(bad), maxFraction * a.size()) << what << ": " << bad << " of " << a.size();
  }

  std::unique_ptr<Backend> gpu_;
  std::unique_ptr<CpuBackend> cpu_;
};

// Integer arrays of the matching executors, moved as raw 32-bit words
// through the float transfers of their backend (no value conversion).
struct IntTwin {
  IntBuffer cpu, gpu;
};

}  // namespace vemo::cuda_testing
