// The forms of the device error report. They need the CUDA runtime's error
// texts but no device, so they run wherever the backend is built.
#include <gtest/gtest.h>

#if defined(VEMO_HAVE_CUDA)
#include "backends/cuda/cuda_check.h"
#endif

namespace vemo {
namespace {

#if defined(VEMO_HAVE_CUDA)
// The message a failure prints, and the text its BackendError carries.
template <class F>
std::pair<std::string, std::string> failureOf(F&& fail) {
  testing::internal::CaptureStderr();
  std::string thrown = "(nothing thrown)";
  try {
    fail();
  } catch (const BackendError& e) {
    thrown = e.what();
  }
  return {testing::internal::GetCapturedStderr(), thrown};
}
#endif

TEST(CudaErrorReport, FailingCallsAndLaunchesNameFileLineAndRuntimeTextAndThrow) {
#if !defined(VEMO_HAVE_CUDA)
  GTEST_SKIP() << "built without CUDA";
#else
  const int line = __LINE__ + 1;
  auto call = failureOf([] { VEMO_CUDA_CALL(cudaErrorMemoryAllocation); });
  const std::string callText =
      "Cuda error in file '" + std::string(__FILE__) + "' in line " + std::to_string(line) + " : out of memory.";
  EXPECT_EQ(call.first, callText + "\n");
  EXPECT_EQ(call.second, callText);
  auto launch = failureOf([] { cuda::failLaunch("small x conv", cudaErrorInvalidConfiguration, "Filters", 77); });
  EXPECT_EQ(launch.second, "Cuda error: small x conv in file 'Filters' in line 77 : invalid configuration argument.");
  // An embedding caller's capture takes the message; nothing is printed.
  {
    MessageCapture capture;
    auto quiet = failureOf([] { cuda::failLaunch("scale", cudaErrorInvalidValue, "f", 1); });
    EXPECT_EQ(quiet.first, "");
    EXPECT_EQ(capture.text(), quiet.second);
  }
  // A successful call passes silently.
  VEMO_CUDA_CALL(cudaSuccess);
#endif
}

TEST(CudaErrorReport, FailedTeardownIsReportedOnceAndNeverThrowsOrEndsTheProcess) {
#if !defined(VEMO_HAVE_CUDA)
  GTEST_SKIP() << "built without CUDA";
#else
  deviceFailureSeenFlag.store(false);
  // As from a destructor: noexcept, so a throw would terminate instead.
  auto teardown = [](cudaError_t err) noexcept { VEMO_CUDA_TEARDOWN(err); };
  const int line = __LINE__ - 1;
  testing::internal::CaptureStderr();
  teardown(cudaErrorIllegalAddress);
  // Later errors are echoes of the first failure.
  teardown(cudaErrorIllegalAddress);
  // Static objects that die after the runtime has shut down find their
  // memory gone with it: nothing to report.
  teardown(cudaErrorCudartUnloading);
  teardown(cudaSuccess);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Cuda error in file '" + std::string(__FILE__) + "' in line " + std::to_string(line) +
                " : an illegal memory access was encountered.\n");
  EXPECT_TRUE(deviceFailureSeen());
#endif
}

}  // namespace
}  // namespace vemo
