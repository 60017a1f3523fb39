#include "variational/run_memory.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "driver/flow_stages.h"
#include "image/synthetic.h"

namespace {

// A backend that pretends to have `bytes` of memory and to hold `overhead`
// beyond its buffers.
class SmallCpuBackend : public vemo::CpuBackend {
 public:
  explicit SmallCpuBackend(std::size_t bytes, RunOverhead overhead = {}) : bytes_(bytes), overhead_(overhead) {}
  std::size_t availableBytes() const override { return bytes_; }
  RunOverhead runOverhead(int, int, int, int) const override { return overhead_; }

 private:
  std::size_t bytes_;
  RunOverhead overhead_;
};

}  // namespace

TEST(RunMemory, EstimateBoundsTheRealPeakWithoutGrossWaste) {
  // Sizes with and without matching grid points, odd and padded pitches.
  const int sizes[][3] = {{96, 80, 0}, {131, 57, 5}, {24, 40, 0}};
  for (const auto& s : sizes) {
    CTensor<float> f1, f2, truth, flow;
    NSynthetic::makeShiftedPair(s[0], s[1], 2.0f, 1.0f, 5, f1, f2, truth);
    vemo::CpuBackend backend(16, s[2]);
    testing::internal::CaptureStdout();
    computeFlowOnBackend(backend, f1, f2, flow, FlowParameters{30, 300, 5, 0.95f, 1, 1});
    testing::internal::GetCapturedStdout();
    const double peak = static_cast<double>(backend.peakBytes());
    const double estimate = static_cast<double>(
        vemo::estimateRunBytes(s[1], s[0], backend.pitchFor(s[0]), 3));
    EXPECT_EQ(backend.bytesInUse(), 0u) << "buffers leaked";
    EXPECT_GE(estimate, peak) << s[0] << "x" << s[1];
    EXPECT_LE(estimate, 2.0 * peak) << s[0] << "x" << s[1];
  }
}

TEST(RunMemory, FrameTooLargeIsRefusedBeforeAnyAllocation) {
  CTensor<float> f1, f2, truth, flow(3, 3, 2, 7.0f);
  NSynthetic::makeShiftedPair(64, 48, 1.0f, 0.0f, 2, f1, f2, truth);
  SmallCpuBackend backend(1 << 20);  // 1 MiB
  testing::internal::CaptureStderr();
  EXPECT_THROW(computeFlowOnBackend(backend, f1, f2, flow, FlowParameters{30, 300, 5, 0.95f, 1, 1}),
               vemo::BackendError);
  const std::string message = testing::internal::GetCapturedStderr();
  EXPECT_NE(message.find("64 x 48 frame with 3 channels needs about"), std::string::npos) << message;
  EXPECT_NE(message.find("only 1 MiB"), std::string::npos) << message;
  EXPECT_EQ(backend.peakBytes(), 0u);
  EXPECT_EQ(flow.xSize, 3);  // the caller's flow is untouched

  // A frame of 100000 x 100000 pixels needs terabytes: the estimate must not
  // overflow into a small number.
  EXPECT_GT(vemo::estimateRunBytes(100000, 100000, 100000, 3), std::size_t(1) << 40);
}

TEST(RunMemory, AProcessMemoryLimitLeavesOnlyTheRoomUnderIt) {
#ifdef VEMO_SANITIZE_BUILD
  GTEST_SKIP() << "the sanitizers reserve address space far beyond any limit";
#endif
  const vemo::CpuBackend backend;
  // In a child, whose limit goes with it: 256 MiB above what it maps now.
  const pid_t child = fork();
  if (child == 0) {
    unsigned long long pages = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    if (statm == nullptr || std::fscanf(statm, "%llu", &pages) != 1) _exit(2);
    std::fclose(statm);
    const rlim_t room = rlim_t(256) << 20;
    const rlimit limit{pages * sysconf(_SC_PAGESIZE) + room, RLIM_INFINITY};
    if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(3);
    const std::size_t have = backend.availableBytes();
    if (have > room || have < room / 2) _exit(4);
    std::fclose(stderr);  // the refusal's message
    try {
      vemo::refuseIfTooLarge(backend, 1000, 1000, backend.pitchFor(1000), 3);
    } catch (const vemo::BackendOutOfMemory&) {
      _exit(0);
    }
    _exit(5);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
}

TEST(RunMemory, WhatTheBackendHoldsBeyondItsBuffersIsCounted) {
  using vemo::estimateRunBytes;
  const int H = 480, W = 640, P = 640, C = 3;
  const std::size_t bare = estimateRunBytes(H, W, P, C), plane = std::size_t(P) * H * sizeof(float);
  EXPECT_EQ(estimateRunBytes(H, W, P, C, {0, 12345}), bare + 12345);
  // Matching scratch counts only where it lifts the matching phase above the
  // peak of the whole run.
  EXPECT_EQ(estimateRunBytes(H, W, P, C, {17 * plane, 0}), bare);
  EXPECT_GT(estimateRunBytes(H, W, P, C, {80 * plane, 0}), bare);

  // Enough memory for the buffers alone, not for what the backend holds too.
  SmallCpuBackend tight(bare + 1000, {0, 1 << 20});
  testing::internal::CaptureStderr();
  EXPECT_THROW(vemo::refuseIfTooLarge(tight, H, W, P, C), vemo::BackendError);
  testing::internal::GetCapturedStderr();
  EXPECT_NO_THROW(vemo::refuseIfTooLarge(SmallCpuBackend(bare + 1000), H, W, P, C));
}

TEST(RunMemory, PlanesBeyond32BitOffsetsAreRefusedBeforeAnyAllocation) {
  // Memory is no limit here: only the offsets can refuse.
  SmallCpuBackend roomy(std::size_t(1) << 50);
  // Twelve matrix planes of 10 x 17895697 floats end at 2^31 - 8.
  EXPECT_NO_THROW(vemo::refuseIfTooLarge(roomy, 17895697, 10, 10, 3));
  testing::internal::CaptureStderr();
  EXPECT_THROW(vemo::refuseIfTooLarge(roomy, 17895698, 10, 10, 3), vemo::BackendError);
  const std::string message = testing::internal::GetCapturedStderr();
  EXPECT_NE(message.find("a 10 x 17895698 frame is too large: the solver addresses 12 planes of 10 x 17895698 "
                         "floats"),
            std::string::npos)
      << message;
  EXPECT_EQ(roomy.peakBytes(), 0u);
}
