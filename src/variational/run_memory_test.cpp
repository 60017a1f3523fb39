#include "variational/run_memory.h"

#include <gtest/gtest.h>

#include <string>

#include "backends/cpu/cpu_backend.h"
#include "driver/flow_stages.h"
#include "image/synthetic.h"

namespace {

// A backend that pretends to have little memory.
class SmallCpuBackend : public flowcore::CpuBackend {
 public:
  explicit SmallCpuBackend(std::size_t bytes) : bytes_(bytes) {}
  std::size_t availableBytes() const override { return bytes_; }

 private:
  std::size_t bytes_;
};

}  // namespace

TEST(RunMemory, EstimateBoundsTheRealPeakWithoutGrossWaste) {
  // Sizes with and without matching grid points, odd and padded pitches.
  const int sizes[][3] = {{96, 80, 0}, {131, 57, 5}, {24, 40, 0}};
  for (const auto& s : sizes) {
    CTensor<float> f1, f2, truth, flow;
    NSynthetic::makeShiftedPair(s[0], s[1], 2.0f, 1.0f, 5, f1, f2, truth);
    flowcore::CpuBackend backend(16, s[2]);
    testing::internal::CaptureStdout();
    computeFlowOnBackend(backend, f1, f2, flow, FlowParameters{30, 300, 5, 0.95f, 1, 1});
    testing::internal::GetCapturedStdout();
    const double peak = static_cast<double>(backend.peakBytes());
    const double estimate = static_cast<double>(
        flowcore::estimateRunBytes(s[1], s[0], backend.pitchFor(s[0]), 3));
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
               flowcore::BackendError);
  const std::string message = testing::internal::GetCapturedStderr();
  EXPECT_NE(message.find("64 x 48 frame with 3 channels needs about"), std::string::npos) << message;
  EXPECT_NE(message.find("only 1 MiB"), std::string::npos) << message;
  EXPECT_EQ(backend.peakBytes(), 0u);
  EXPECT_EQ(flow.xSize, 3);  // the caller's flow is untouched

  // A frame of 100000 x 100000 pixels needs terabytes: the estimate must not
  // overflow into a small number.
  EXPECT_GT(flowcore::estimateRunBytes(100000, 100000, 100000, 3), std::size_t(1) << 40);
}
