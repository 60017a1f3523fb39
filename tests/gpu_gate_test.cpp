// The gate of the GPU tests, seen from outside: a machine meant to have a
// GPU must not pass them as "0 failures" when its device cannot be used.
#include <gtest/gtest.h>

#include <string>

#include "backends/cuda/device_probe.h"
#include "support/process.h"

namespace {

using vemotest::Result;
using vemotest::ScratchDir;

TEST(GpuTestGate, RequiredGpuTurnsTheSkipIntoAFailure) {
  const std::string binary = VEMO_BINARY_DIR "/vemo_gpu_tests";
  ASSERT_TRUE(vemotest::exists(binary)) << binary;
  ScratchDir scratch("gpu_gate_");
  auto runWith = [&](const std::string& require) {
    return scratch.run("env", {"-u", "VEMO_DEVICE", "VEMO_REQUIRE_GPU=" + require, binary,
                               "--gtest_filter=CudaAgainstCpu.FilterTileBordersAndInPlacePassesAgreeBitForBit"});
  };
  const Result required = runWith("1"), optional = runWith("0");
  EXPECT_EQ(optional.status, 0) << optional.out;
  if (vemo::cudaDeviceUsable(0)) {
    EXPECT_EQ(required.status, 0) << required.out;
    return;
  }
  EXPECT_NE(optional.out.find("[  SKIPPED ]"), std::string::npos) << optional.out;
  EXPECT_NE(required.status, 0) << required.out;
  EXPECT_NE(required.out.find("VEMO_REQUIRE_GPU is set, but no usable CUDA device cuda:0"), std::string::npos)
      << required.out;
}

}  // namespace
