// A computation stops soon after its cancel flag is set, leaves its backend
// fit for the next pair, and without a flag (or with one never set) computes
// exactly what it always did.
#include "common/cancel.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "backends/backend.h"
#include "backends/backend_factory.h"
#include "common/stage_lines.h"
#include "driver/flow_picture.h"
#include "driver/pair_flow.h"
#include "image/synthetic.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

bool identical(const CTensor<float>& a, const CTensor<float>& b) {
  return a.xSize == b.xSize && a.ySize == b.ySize && a.zSize == b.zSize &&
         std::memcmp(a.data, b.data, sizeof(float) * a.elements()) == 0;
}

TEST(Cancel, ScopesNestAndOnlyASetFlagThrows) {
  std::atomic<bool> outer{false}, inner{true};
  vemo::cancellationPoint();  // no flag: nothing
  {
    vemo::CancelScope a(&outer);
    vemo::cancellationPoint();
    {
      vemo::CancelScope b(&inner);
      EXPECT_THROW(vemo::cancellationPoint(), vemo::Cancelled);
    }
    vemo::cancellationPoint();  // the outer flag again
    outer = true;
    EXPECT_THROW(vemo::cancellationPoint(), vemo::Cancelled);
    EXPECT_THROW(flowPicture(CTensor<float>(8, 8, 2, 1.0f), 0.0f, false), vemo::Cancelled);
  }
  vemo::cancellationPoint();
}

TEST(Cancel, AFlowStopsSoonAfterTheFlagAndTheBackendComputesTheNextPairAsBefore) {
#ifdef VEMO_SANITIZE_BUILD
  const int width = 96, height = 72;
#else
  const int width = 320, height = 240;
#endif
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(width, height, 2.5f, -1.5f, 5, f1, f2, truth);
  const FlowParameters params{30.0f, 300.0f, 5.0f, 0.95f, 5, 10};
  vemo::setStageLines(false);
  std::unique_ptr<vemo::Backend> backend = vemo::makeBackend();

  std::atomic<bool> flag{false};
  const Clock::time_point began = Clock::now();
  CTensor<float> expected;
  {
    vemo::CancelScope never(&flag);  // a flag that stays clear changes nothing
    expected = flowBetween(*backend, f1, f2, 0.8f, params);
  }
  const double whole = seconds(Clock::now() - began);

  // Set during the matching, then during the variational part.
  for (double share : {0.05, 0.5}) {
    flag = false;
    Clock::time_point set;
    std::thread canceller([&] {
      std::this_thread::sleep_for(std::chrono::duration<double>(share * whole));
      set = Clock::now();
      flag = true;
    });
    vemo::CancelScope scope(&flag);
    EXPECT_THROW(flowBetween(*backend, f1, f2, 0.8f, params), vemo::Cancelled) << share;
    const Clock::time_point stopped = Clock::now();
    canceller.join();
    EXPECT_LT(seconds(stopped - set), 0.2 * whole + 0.1) << "of a " << whole << " s run, at " << share;
  }
  EXPECT_TRUE(identical(flowBetween(*backend, f1, f2, 0.8f, params), expected));
  vemo::setStageLines(true);
}

}  // namespace
