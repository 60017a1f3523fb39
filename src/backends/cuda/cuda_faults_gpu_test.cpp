// Faults on a real device: a kernel that faults is reported at its own
// launch under VEMO_CUDA_SYNC=1, and the backend's memory is what the check
// before a run counts, with the cache given back before a refusal.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "backends/cuda/cuda_gpu_test_fixture.h"
#include "common/diagnostics.h"
#include "driver/flow_stages.h"
#include "image/synthetic.h"
#include "variational/run_memory.h"

namespace vemo {
namespace {

using cuda_testing::CudaAgainstCpu;

TEST_F(CudaAgainstCpu, SyncSwitchReportsAKernelFaultAtItsOwnLaunch) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  float* notDeviceMemory = reinterpret_cast<float*>(0x100);
  // Status 1 once the failure has been thrown, as the programs end.
  auto endsWithOne = [](auto&& body) {
    try {
      body();
    } catch (const BackendError&) {
      std::exit(1);
    }
    std::exit(0);
  };
  // The child process reads the switch at its first launch check.
  EXPECT_EXIT(endsWithOne([&] {
                setenv("VEMO_CUDA_SYNC", "1", 1);
                gpu().scale(notDeviceMemory, 64, 64, 64, 2.0f);
              }),
              ::testing::ExitedWithCode(1),
              "^Cuda error: Scale in file '[^']*' in line [0-9]+ : an illegal memory access was encountered\\.\n$");
  // Without it the launch passes its check and the fault shows at a wait.
  EXPECT_EXIT(endsWithOne([&] {
                unsetenv("VEMO_CUDA_SYNC");
                gpu().scale(notDeviceMemory, 64, 64, 64, 2.0f);
                std::fprintf(stderr, "launched\n");
                gpu().synchronize();
              }),
              ::testing::ExitedWithCode(1), "^launched\nCuda error in file '[^']*' in line [0-9]+ : an illegal memory");
  // Inside an embedding caller's capture the message goes into the
  // exception only, and the backend's teardown after the fault is silent.
  EXPECT_EXIT(
      {
        setenv("VEMO_CUDA_SYNC", "1", 1);
        MessageCapture capture;
        try {
          gpu().scale(notDeviceMemory, 64, 64, 64, 2.0f);
        } catch (const BackendError& e) {
          std::fprintf(stderr, "caught: %s\n", e.what());
          std::exit(3);
        }
        std::exit(0);
      },
      ::testing::ExitedWithCode(3), "^caught: Cuda error: Scale in file [^\n]*\n$");
}

TEST_F(CudaAgainstCpu, CachedBlocksAreGivenBackBeforeAnAllocationIsRefused) {
  Backend& g = gpu();
  const std::size_t available = g.availableBytes();
  const std::size_t floats = available / 5 * 3 / sizeof(float);
  { const Buffer first = g.allocate(floats); }  // kept in the cache
  EXPECT_GE(g.availableBytes() + (64u << 20), available) << "cached blocks count as available";
  // A block of another size fits only once the cached one is given back.
  Buffer second = g.allocate(floats + (8u << 20));
  EXPECT_TRUE(second);
  second = Buffer();
  testing::internal::CaptureStderr();
  EXPECT_THROW(g.allocate(available / sizeof(float) * 2), BackendError);
  const std::string message = testing::internal::GetCapturedStderr();
  EXPECT_NE(message.find("vemo: the CUDA device is out of memory: "), std::string::npos) << message;
  // The refusal leaves the backend working.
  const Buffer small = g.allocate(1000);
  g.clear(small.data(), 1000);
  g.synchronize();
}

TEST_F(CudaAgainstCpu, RunStaysWithinTheMemoryCheckEstimate) {
  // Simulated: a smaller frame (the matching's search grows with its area),
  // still above the one-block size, and fewer levels (the peak is the
  // finest level's, whatever the iterations).
  const bool simulated = cuda_testing::simulatedGpu();
  const int H = simulated ? 48 : 240, W = simulated ? 96 : 320, C = 3;
  CTensor<float> f1, f2, truth, flow;
  NSynthetic::makeShiftedPair(W, H, 3.0f, -2.0f, 11, f1, f2, truth);
  Backend& g = gpu();
  testing::internal::CaptureStdout();
  computeFlowOnBackend(g, f1, f2, flow, FlowParameters{30, 300, 5, simulated ? 0.5f : 0.95f, simulated ? 1 : 2, simulated ? 2 : 5});
  testing::internal::GetCapturedStdout();
  const int pitch = g.pitchFor(W);
  const Backend::RunOverhead overhead = g.runOverhead(H, W, pitch, C);
  const double estimate = static_cast<double>(estimateRunBytes(H, W, pitch, C, overhead));
  const double peak = static_cast<double>(g.peakBytes());
  EXPECT_EQ(g.bytesInUse(), 0u) << "buffers leaked";
  EXPECT_GE(estimate - overhead.held, peak);
  EXPECT_LE(estimate, 2.5 * peak);
}

}  // namespace
}  // namespace vemo
