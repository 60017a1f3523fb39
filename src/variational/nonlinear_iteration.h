// Lagged-nonlinearity fixed-point iterations of one pyramid level.
#pragma once

#include "backends/backend.h"
#include "method/pcg_steps.h"
#include "method/scratch_sets.h"
#include "pixel/diffusivity.h"

namespace vemo {

// Solves for the increment (du, dv) of the flow (u, v) at one level, frame 2
// already warped towards frame 1 by (u, v), then adds it to u and v. Each of
// the `fixedPointIterations` outer iterations freezes the robust weights and
// the diffusivity at (u + du, v + dv), assembles the linear system and runs
// `solverIterations` conjugate-gradient updates warm-started from the
// previous increment. The increment starts from zero at every call and the
// motion tensors are built once per call.
//
// frame1 and warped have nChan planes; conf is the in-image mask of the warp;
// geoU, geoV, geoConf are the level's match planes (a weight <= 0 or NaN
// switches the match term off at that pixel). `hypos` is the number of match
// hypotheses the caller holds; one is used. gamma is already scaled for the
// level; smoothnessEpsilon is that of the diffusivity (pixel/diffusivity.h).
// Times the whole call as the "makematrix" stretch and the solves as
// "solver" stretches of the backend (added to timer_makematrix and
// timer_solver when the caller settles the backend's stretches). A backend
// may run the whole call as one unit of work (Backend::runWholeLevel).
void gNonLinearIteration(Backend& backend, const float* frame1, const float* warped, const float* conf,
                         const float* geoU, const float* geoV, const float* geoConf, int hypos, float* u, float* v,
                         int height, int width, int pitch, int nChan, float alpha, float beta, float gamma,
                         int fixedPointIterations, int solverIterations, const CGtmp& cg, const FPtmp& fp,
                         double smoothnessEpsilon = kRobustEpsilon);

// One solve of a fixed-point step on the host: timed as the "solver"
// stretch, and issued as repeatable work (a backend may record and replay
// it). The level's operations (method/level_steps.h) call it.
void solveStep(Backend& backend, const SolveArgs& a);

}  // namespace vemo
