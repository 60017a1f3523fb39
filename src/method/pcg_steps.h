// The operations of one block-Jacobi preconditioned conjugate-gradient
// solve, written once for every executor (a Backend, or a kernel's executor
// with the same operations).
#pragma once

#include <cstddef>

#include "common/cancel.h"
#include "common/hd.h"
#include "method/scratch_sets.h"

namespace vemo {

// One solve: the system `A` with right-hand side `b` for the increment
// (du, dv), at most `iterations` updates, scratch `cg`.
struct SolveArgs {
  const float* A;
  const float* b;
  float* du;
  float* dv;  // du + pitch * height
  int height, width, pitch, iterations;
  CGtmp cg;
};

// The start of a solve as separate steps (Backend::cgPrepare's default):
// the solver's vectors cleared, r = b - A du, z = block-Jacobi(r), p = z and
// rz = r . z.
VEMO_EXECUTOR_TEMPLATE
template <class Steps>
VEMO_INLINE void pcgStartSteps(Steps& steps, const float* A, const float* b, const float* du, const CGtmp& t,
                               int h, int w, int pitch) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * h;
  steps.clear(t.r, 2 * plane);
  steps.clear(t.z, 2 * plane);
  steps.clear(t.p, 2 * plane);
  steps.clear(t.q, 2 * plane);
  steps.clear(t.pNext, 2 * plane);
  steps.residual(A, b, du, du + plane, h, w, pitch, t.r);
  steps.blockJacobi(A, t.r, t.z, h, w, pitch);
  steps.copy(t.p, t.z, 2 * plane);
  steps.cgBegin(t.r, t.z, h, w, pitch);
}

// The operations of one solve, issued on `steps` (a Backend, or a kernel's
// executor with the same operations). The solver's scalars live with the
// executor: each reduction advances them and each step does nothing once the
// solve has converged, so nothing here reads a result back.
//
// Each iteration needs two reductions: p . q and the new r . z. The
// convergence test comes before the product, which is not needed once the
// solver stops. The direction update p <- beta p + z of one iteration is done
// by the product pass of the next, into the other direction buffer or, where
// the executor forms it in place, over the current one.
VEMO_EXECUTOR_TEMPLATE
template <class Steps>
VEMO_INLINE void pcgSteps(Steps& steps, const SolveArgs& a) {
  const int h = a.height, w = a.width, pitch = a.pitch;
  const CGtmp& t = a.cg;
  steps.cgPrepare(a.A, a.b, a.du, t, h, w, pitch);
  float* p = t.p;
  float* pOther = t.pNext;
  for (int k = 0; k < a.iterations && steps.cgActive(); ++k) {
    cancellationPoint();
    if (k == 0) {
      steps.cgFirstProduct(a.A, p, t.q, h, w, pitch);
    } else if (steps.cgDirectionInPlace()) {
      steps.cgNextProduct(a.A, p, t.r, t.z, p, t.q, h, w, pitch);
    } else {
      steps.cgNextProduct(a.A, p, t.r, t.z, pOther, t.q, h, w, pitch);
      float* previous = p;
      p = pOther;
      pOther = previous;
    }
    steps.cgUpdate(a.A, a.du, p, t.r, t.q, t.z, h, w, pitch);
  }
}

}  // namespace vemo
