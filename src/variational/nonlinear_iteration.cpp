#include "variational/motion_tensors.h"
#include "variational/nonlinear_iteration.h"

#include <cstddef>

#include "common/timer.h"
#include "variational/diffusivity.h"
#include "variational/pcg.h"
#include "variational/solver_timers.h"

namespace flowcore {

void gNonLinearIteration(Backend& backend, const float* frame1, const float* warped, const float* conf,
                         const float* geoU, const float* geoV, const float* geoConf, int hypos, float* u, float* v,
                         int height, int width, int pitch, int nChan, float alpha, float beta, float gamma,
                         int fixedPointIterations, int solverIterations, const CGtmp& cg, const FPtmp& fp) {
  (void)hypos;  // the match planes carry one hypothesis per pixel
  stamp(start_makematrix);
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  float* du = fp.du;
  float* dv = fp.du + plane;
  backend.clear(du, plane);
  backend.clear(dv, plane);
  backend.clear(fp.ST, 6 * plane);
  backend.clear(fp.ST2, 6 * plane);
  MakeST(backend, frame1, warped, fp.ST, fp.ST2, conf, fp.derivatives, height, width, pitch, nChan);

  for (int k = 0; k < fixedPointIterations; ++k) {
    gDiffusivity(backend, u, v, du, dv, fp.diffX, fp.diffY, height, width, pitch, fp.flowSum, fp.flowDerivative);
    backend.assembleSystem(fp, u, v, geoU, geoV, geoConf, height, width, pitch, alpha, beta, gamma);
    stamp(start_solver);
    gPCG(backend, fp.devMatrix, fp.b, du, dv, height, width, pitch, solverIterations, cg);
    backend.synchronize();
    closeStretch(start_solver, finish_solver, timer_solver);
  }

  backend.add(u, du, height, width, pitch);
  backend.add(v, dv, height, width, pitch);
  backend.synchronize();
  closeStretch(start_makematrix, finish_makematrix, timer_makematrix);
}

}  // namespace flowcore
