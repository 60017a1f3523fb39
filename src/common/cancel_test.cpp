// A computation stops soon after its cancel flag is set, leaves its Engine
// fit for the next pair, and without a flag (or with one never set) computes
// exactly what it always did.
#include "common/cancel.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "driver/flow_picture.h"
#include "image/synthetic.h"
#include "vemo/engine.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

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

TEST(Cancel, AFlowStopsSoonAfterTheFlagAndTheEngineComputesTheNextPairAsBefore) {
#ifdef VEMO_SANITIZE_BUILD
  const int width = 96, height = 72;
#else
  const int width = 320, height = 240;
#endif
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(width, height, 2.5f, -1.5f, 5, f1, f2, truth);
  // The public API's interleaved frames.
  std::vector<float> a(f1.elements()), b(f2.elements());
  for (std::size_t i = 0; i < f1.planeSize(); ++i)
    for (int c = 0; c < 3; ++c) {
      a[3 * i + c] = f1.data[c * f1.planeSize() + i];
      b[3 * i + c] = f2.data[c * f2.planeSize() + i];
    }
  const vemo::ImageView one(a.data(), width, height, 3), two(b.data(), width, height, 3);
  vemo::Engine engine("cpu", 1);

  std::atomic<bool> flag{false};
  const Clock::time_point began = Clock::now();
  vemo::Flow expected;
  {
    vemo::CancelScope never(&flag);  // a flag that stays clear changes nothing
    expected = engine.flow(one, two);
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
    EXPECT_THROW(engine.flow(one, two), vemo::Cancelled) << share;
    const Clock::time_point stopped = Clock::now();
    canceller.join();
    EXPECT_LT(seconds(stopped - set), 0.2 * whole + 0.1) << "of a " << whole << " s run, at " << share;
  }
  ASSERT_TRUE(engine.usable());
  const vemo::Flow again = engine.flow(one, two);
  EXPECT_EQ(std::memcmp(again.data(), expected.data(), expected.size() * sizeof(float)), 0);
}

}  // namespace
