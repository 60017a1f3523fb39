// The forms of the device error report. They need the CUDA runtime's error
// texts but no device, so they run wherever the backend is built.
#include <gtest/gtest.h>

#if defined(VEMO_HAVE_CUDA)
#include "backends/cuda/cuda_check.h"
#endif

namespace vemo {
namespace {

TEST(CudaErrorReport, FailingCallsAndLaunchesNameFileLineAndRuntimeTextThenExitOne) {
#if !defined(VEMO_HAVE_CUDA)
  GTEST_SKIP() << "built without CUDA";
#else
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const int line = __LINE__ + 1;
  EXPECT_EXIT(VEMO_CUDA_CALL(cudaErrorMemoryAllocation), ::testing::ExitedWithCode(1),
              "^Cuda error in file '[^']*cuda_check_test\\.cpp' in line " + std::to_string(line) +
                  " : out of memory\\.\n$");
  EXPECT_EXIT(cuda::failLaunch("small x conv", cudaErrorInvalidConfiguration, "Filters", 77),
              ::testing::ExitedWithCode(1),
              "^Cuda error: small x conv in file 'Filters' in line 77 : invalid configuration argument\\.\n$");
  // A successful call passes silently.
  VEMO_CUDA_CALL(cudaSuccess);
#endif
}

TEST(CudaErrorReport, FailedTeardownIsReportedWithoutThrowingExceptAtRuntimeShutdown) {
#if !defined(VEMO_HAVE_CUDA)
  GTEST_SKIP() << "built without CUDA";
#else
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // As from a destructor: noexcept, so a throw would terminate instead.
  auto teardown = [](cudaError_t err) noexcept { VEMO_CUDA_TEARDOWN(err); };
  const int line = __LINE__ - 1;
  EXPECT_EXIT(teardown(cudaErrorIllegalAddress), ::testing::ExitedWithCode(1),
              "^Cuda error in file '[^']*cuda_check_test\\.cpp' in line " + std::to_string(line) +
                  " : an illegal memory access was encountered\\.\n$");
  // Static objects that die after the runtime has shut down find their
  // memory gone with it: nothing to report.
  teardown(cudaErrorCudartUnloading);
  teardown(cudaSuccess);
#endif
}

}  // namespace
}  // namespace vemo
