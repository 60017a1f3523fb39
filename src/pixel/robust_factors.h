// Lagged robust weights of the data terms, evaluated at the current flow
// increment (du, dv) and frozen while the linear system is solved.
//
// A motion tensor J (six planes: J11, J22, J33, J12, J13, J23) turns the
// increment into the squared residual of its constancy assumption,
// E(J) = J33 + J11 du^2 + J22 dv^2 + 2 (J12 du dv + J13 du + J23 dv).
// Each weight is the derivative of the penaliser sqrt(s^2 + 1e-6) without
// its factor 1/2.
#pragma once

#include <cmath>

#include "common/hd.h"
#include "pixel/diffusivity.h"

namespace vemo {

// E(J) at plane index i, `plane` = pitch * height. Mixed terms and squares in
// single precision with fused multiply-adds; the final sum in double. A
// negative value (rounding) is clamped to 0 so that the weight stays finite.
VEMO_INLINE float quadraticForm(const float* J, int i, int plane, float du, float dv) {
  const float j11 = J[i], j22 = J[i + plane], j33 = J[i + 2 * plane];
  const float j12 = J[i + 3 * plane], j13 = J[i + 4 * plane], j23 = J[i + 5 * plane];
  float q1 = j12 * du * dv;
  q1 = fmaf(j13, du, q1);
  q1 = fmaf(j23, dv, q1);
  const float q2 = fmaf(j11 * du, du, j22 * dv * dv);
  const float e = (float)((double)(j33 + q2) + 2.0 * (double)q1);
  return e < 0.0f ? 0.0f : e;
}

// DataFactor_kernel at index i: dPsiData = 1 / sqrt(E(ST) + 1e-6).
VEMO_INLINE void DataFactor_kernel(const float* ST, const float* du, const float* dv, float* dPsiData, int i,
                                   int plane) {
  dPsiData[i] = inverseRobustNorm(quadraticForm(ST, i, plane, du[i], dv[i]));
}

// GradientFactor_kernel at index i: dPsiGradient = gamma / sqrt(E(ST2) + 1e-6).
VEMO_INLINE void GradientFactor_kernel(const float* ST2, const float* du, const float* dv, float* dPsiGradient,
                                       int i, int plane, float gamma) {
  const float e = quadraticForm(ST2, i, plane, du[i], dv[i]);
  dPsiGradient[i] = (float)((double)gamma / ::sqrt((double)e + kRobustEpsilon));
}

// MatchFactor_kernel at index i. Each hypothesis h (plane h of the match
// planes) with a weight > 0 pulls u + du towards its displacement with the
// robust weight beta * c / |(u + du, v + dv) - match|. The right-hand-side
// sums use u, not u + du, since du is the unknown. A NaN weight fails the
// "> 0" test and counts as no match.
VEMO_INLINE void MatchFactor_kernel(const float* u, const float* v, const float* du, const float* dv,
                                    const float* geoU, const float* geoV, const float* geoConf,
                                    float* dPsiMatch, float* matchU, float* matchV, int hypos, int i, int plane,
                                    float beta) {
  float m = 0.0f, mu = 0.0f, mv = 0.0f;
  const float uc = u[i], vc = v[i];
  const float ue = uc + du[i], ve = vc + dv[i];
  for (int h = 0; h < hypos; ++h) {
    const int k = i + h * plane;
    const float c = geoConf[k];
    if (!(c > 0.0f)) continue;
    const float eu = ue - geoU[k];
    const float ev = ve - geoV[k];
    const float bc = beta * c;
    const float s = fmaf(eu, eu, ev * ev);
    const float w = (float)((double)bc / ::sqrt((double)s + kRobustEpsilon));
    m = m + w;
    mu = fmaf(w, uc - geoU[k], mu);
    mv = fmaf(w, vc - geoV[k], mv);
  }
  dPsiMatch[i] = m;
  matchU[i] = mu;
  matchV[i] = mv;
}

}  // namespace vemo
