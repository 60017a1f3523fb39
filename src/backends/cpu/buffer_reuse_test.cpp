// A backend kept across runs (a sequence of pairs) hands out reused blocks:
// they must come back zeroed and must not change any result.
#include <gtest/gtest.h>

#include <cstring>

#include "backends/cpu/cpu_backend.h"
#include "driver/flow_stages.h"
#include "image/synthetic.h"

namespace {

CTensor<float> flowOf(vemo::Backend& backend, int width, int height, float dx, uint32_t seed) {
  CTensor<float> f1, f2, truth, flow;
  NSynthetic::makeShiftedPair(width, height, dx, 1.0f, seed, f1, f2, truth);
  testing::internal::CaptureStdout();
  computeFlowOnBackend(backend, f1, f2, flow, FlowParameters{30, 300, 5, 0.95f, 2, 3});
  testing::internal::GetCapturedStdout();
  return flow;
}

bool sameBits(const CTensor<float>& a, const CTensor<float>& b) {
  return a.elements() == b.elements() && std::memcmp(a.data, b.data, a.elements() * sizeof(float)) == 0;
}

}  // namespace

TEST(BufferReuse, ReusedBlocksAreZeroedAndLeaveResultsUnchanged) {
  vemo::CpuBackend backend;
  {
    vemo::Buffer dirty = backend.allocate(1000);
    for (size_t i = 0; i < dirty.floats(); ++i) dirty.data()[i] = 5.0f;
  }
  vemo::Buffer again = backend.allocate(1000);
  for (size_t i = 0; i < again.floats(); ++i) ASSERT_EQ(again.data()[i], 0.0f) << i;
  again.reset();

  vemo::CpuBackend fresh;
  const CTensor<float> expected = flowOf(fresh, 64, 48, 2.0f, 3);
  const CTensor<float> first = flowOf(backend, 64, 48, 2.0f, 3);
  const std::size_t peak = backend.peakBytes();
  flowOf(backend, 80, 40, -1.5f, 4);  // another size in between
  const CTensor<float> second = flowOf(backend, 64, 48, 2.0f, 3);
  EXPECT_TRUE(sameBits(expected, first));
  EXPECT_TRUE(sameBits(expected, second));
  EXPECT_EQ(backend.bytesInUse(), 0u);
  // Live memory never exceeds what one run needs.
  EXPECT_LE(backend.peakBytes(), peak + vemo::CpuBackend().pitchFor(80) * 40 * sizeof(float) * 100);
}
