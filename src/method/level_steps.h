// The operations of one pyramid level's fixed-point iterations, written once
// for every executor: the host issues them on a Backend one by one, and the
// CUDA backend runs them inside one thread block for small levels
// (backends/cuda/cuda_resident_level.cu), from this same template.
#pragma once

#include <cstddef>

#include "common/hd.h"
#include "method/motion_tensor_steps.h"
#include "method/pcg_steps.h"
#include "pixel/diffusivity.h"
#include "method/scratch_sets.h"

namespace vemo {

// Inputs, flow and scratch of one level (see gNonLinearIteration).
struct LevelArgs {
  const float* frame1;  // nChan planes
  const float* warped;  // nChan planes
  const float* conf;
  const float* geoU;
  const float* geoV;
  const float* geoConf;
  float* u;
  float* v;
  int height, width, pitch, nChan;
  float alpha, beta, gamma;  // gamma already scaled for the level
  int fixedPointIterations, solverIterations;
  const float* derivativeMask;  // the taps of kDerivativeMask5, in the executor's memory
  CGtmp cg;
  FPtmp fp;
  double smoothnessEpsilon = kRobustEpsilon;  // of the diffusivity
};

// A solve of a fixed-point step is `solveStep(steps, args)`, an overload
// each executor provides (found where the template is instantiated): the
// host's in variational/nonlinear_iteration.h, the one-block level's in
// backends/cuda/cuda_resident_level.cu.

// Zeroes the increment and the motion tensors, builds the tensors, runs the
// fixed-point iterations (diffusivity, assembly, solve) and adds the
// increment to the flow.
VEMO_EXECUTOR_TEMPLATE
template <class Steps>
VEMO_INLINE void levelSteps(Steps& steps, const LevelArgs& a) {
  const std::size_t plane = static_cast<std::size_t>(a.pitch) * a.height;
  const int h = a.height, w = a.width, pitch = a.pitch;
  const FPtmp& fp = a.fp;
  float* du = fp.du;
  float* dv = fp.du + plane;
  steps.clear(du, plane);
  steps.clear(dv, plane);
  steps.clear(fp.ST, 6 * plane);
  steps.clear(fp.ST2, 6 * plane);
  steps.motionTensors(a.frame1, a.warped, fp.ST, fp.ST2, a.conf, fp.derivatives, h, w, pitch, a.nChan,
                      a.derivativeMask);
  for (int k = 0; k < a.fixedPointIterations; ++k) {
    steps.diffusivity(a.u, a.v, du, dv, fp.diffX, fp.diffY, h, w, pitch, fp.flowSum, fp.flowDerivative,
                      a.smoothnessEpsilon);
    steps.assembleSystem(fp, a.u, a.v, a.geoU, a.geoV, a.geoConf, h, w, pitch, a.alpha, a.beta, a.gamma);
    solveStep(steps, SolveArgs{fp.devMatrix, fp.b, du, dv, h, w, pitch, a.solverIterations, a.cg});
  }
  steps.add(a.u, du, h, w, pitch);
  steps.add(a.v, dv, h, w, pitch);
}

}  // namespace vemo
