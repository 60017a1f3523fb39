// The scalars of one preconditioned conjugate-gradient solve and the three
// steps that advance them. The host computes them between passes on the CPU
// backend; the CUDA backend computes them on the device at the end of each
// reduction, so that the host never waits for a dot product. Both run these
// functions, so both take the same decisions from the same sums.
#pragma once

#include <cmath>

#include "common/hd.h"

namespace vemo {

// The solver stops early once |r . z| (the preconditioned residual product)
// falls below this absolute threshold.
constexpr double kPcgTolerance = 1e-5;

struct CgScalars {
  float rz = 0.0f;     // r . z of the current residual
  float alpha = 0.0f;  // step length of the current iteration
  float beta = 0.0f;   // weight of the previous direction in the next one
  int active = 0;      // 1 while the solve goes on; the passes do nothing once it is 0
  int iterations = 0;  // updates applied so far
  long long updates = 0;  // updates applied by every solve so far (never reset by cgStart)
};

VEMO_INLINE bool cgContinues(float rz) { return !(::fabs(static_cast<double>(rz)) < kPcgTolerance); }

// From the first residual's r . z.
VEMO_INLINE void cgStart(CgScalars& s, float rz) {
  s.rz = rz;
  s.alpha = 0.0f;
  s.beta = 0.0f;
  s.iterations = 0;
  s.active = cgContinues(rz) ? 1 : 0;
}

// From p . q of the iteration's direction: the step length.
VEMO_INLINE void cgStep(CgScalars& s, float pq) { s.alpha = s.rz / pq; }

// From r . z after the update: the next direction's weight, and whether to
// go on.
VEMO_INLINE void cgFinish(CgScalars& s, float rzNext) {
  s.beta = rzNext / s.rz;
  s.rz = rzNext;
  ++s.iterations;
  ++s.updates;
  s.active = cgContinues(rzNext) ? 1 : 0;
}

}  // namespace vemo
