#include "variational/nonlinear_iteration.h"

#include "common/cancel.h"
#include "method/level_steps.h"
#include "variational/pcg.h"
#include "variational/solver_timers.h"

namespace vemo {

void solveStep(Backend& backend, const SolveArgs& a) {
  cancellationPoint();
  backend.openStretch(start_solver);
  backend.issueRepeatable(repeatKeyOf(a), [&] { pcgSteps(backend, a); });
  backend.closeStretch(start_solver, finish_solver, timer_solver);
}

void gNonLinearIteration(Backend& backend, const float* frame1, const float* warped, const float* conf,
                         const float* geoU, const float* geoV, const float* geoConf, int hypos, float* u, float* v,
                         int height, int width, int pitch, int nChan, float alpha, float beta, float gamma,
                         int fixedPointIterations, int solverIterations, const CGtmp& cg, const FPtmp& fp,
                         double smoothnessEpsilon) {
  (void)hypos;  // the match planes carry one hypothesis per pixel
  const LevelArgs level{frame1, warped, conf, geoU,  geoV,  geoConf,          u,
                        v,      height, width, pitch, nChan, alpha, beta, gamma,
                        fixedPointIterations, solverIterations, kDerivativeMask5, cg, fp, smoothnessEpsilon};
  backend.openStretch(start_makematrix);
  if (!backend.runWholeLevel(level, timer_solver)) levelSteps(backend, level);
  backend.closeStretch(start_makematrix, finish_makematrix, timer_makematrix);
}

}  // namespace vemo
