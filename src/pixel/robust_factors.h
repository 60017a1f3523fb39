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

// Weight of the brightness term: 1 / sqrt(E(ST) + 1e-6).
VEMO_INLINE float dataWeight(const float* ST, int i, int plane, float du, float dv) {
  return inverseRobustNorm(quadraticForm(ST, i, plane, du, dv));
}

// Weight of the gradient term, gamma included: gamma / sqrt(E(ST2) + 1e-6).
VEMO_INLINE float gradientWeight(const float* ST2, int i, int plane, float du, float dv, float gamma) {
  const float e = quadraticForm(ST2, i, plane, du, dv);
  return (float)((double)gamma / ::sqrt((double)e + kRobustEpsilon));
}

// DataFactor_kernel at index i.
VEMO_INLINE void DataFactor_kernel(const float* ST, const float* du, const float* dv, float* dPsiData, int i,
                                   int plane) {
  dPsiData[i] = dataWeight(ST, i, plane, du[i], dv[i]);
}

// GradientFactor_kernel at index i.
VEMO_INLINE void GradientFactor_kernel(const float* ST2, const float* du, const float* dv, float* dPsiGradient,
                                       int i, int plane, float gamma) {
  dPsiGradient[i] = gradientWeight(ST2, i, plane, du[i], dv[i], gamma);
}

// One match hypothesis (displacement gu, gv with weight c) at a pixel with
// flow (uc, vc) and estimate (ue, ve) = (u + du, v + dv). A weight that is
// not > 0 (NaN included) counts as no match. The robust weight beta * c /
// |(ue, ve) - (gu, gv)| is evaluated at the estimate; the right-hand-side sums
// use u, not u + du, since du is the unknown.
VEMO_INLINE void addMatchHypothesis(float uc, float vc, float ue, float ve, float gu, float gv, float c, float beta,
                                    float& m, float& mu, float& mv) {
  // Evaluated unconditionally and selected, so that executors can run it
  // without branches; an unused hypothesis changes nothing.
  const bool used = c > 0.0f;
  const float eu = ue - gu;
  const float ev = ve - gv;
  const float bc = beta * c;
  const float s = fmaf(eu, eu, ev * ev);
  const float w = (float)((double)bc / ::sqrt((double)s + kRobustEpsilon));
  const float m1 = m + w;
  const float mu1 = fmaf(w, uc - gu, mu);
  const float mv1 = fmaf(w, vc - gv, mv);
  m = used ? m1 : m;
  mu = used ? mu1 : mu;
  mv = used ? mv1 : mv;
}

// MatchFactor_kernel at index i: the sums over the hypotheses h (plane h of
// the match planes).
VEMO_INLINE void MatchFactor_kernel(const float* u, const float* v, const float* du, const float* dv,
                                    const float* geoU, const float* geoV, const float* geoConf,
                                    float* dPsiMatch, float* matchU, float* matchV, int hypos, int i, int plane,
                                    float beta) {
  float m = 0.0f, mu = 0.0f, mv = 0.0f;
  const float uc = u[i], vc = v[i];
  const float ue = uc + du[i], ve = vc + dv[i];
  for (int h = 0; h < hypos; ++h) {
    const int k = i + h * plane;
    addMatchHypothesis(uc, vc, ue, ve, geoU[k], geoV[k], geoConf[k], beta, m, mu, mv);
  }
  dPsiMatch[i] = m;
  matchU[i] = mu;
  matchV[i] = mv;
}

// The match sums with a single hypothesis, as the fixed-point iteration runs
// it: weight m and right-hand-side sums mu, mv.
VEMO_INLINE void matchSingle(const float* u, const float* v, const float* du, const float* dv, const float* geoU,
                             const float* geoV, const float* geoConf, int i, float beta, float& m, float& mu,
                             float& mv) {
  m = 0.0f;
  mu = 0.0f;
  mv = 0.0f;
  const float uc = u[i], vc = v[i];
  addMatchHypothesis(uc, vc, uc + du[i], vc + dv[i], geoU[i], geoV[i], geoConf[i], beta, m, mu, mv);
}

}  // namespace vemo
