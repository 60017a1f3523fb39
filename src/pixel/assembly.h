// The robust weights and the system row of one pixel in one pass: the three
// weights stay in registers and feed the pixel's matrix row, so the weight
// planes are not written. The values are those of DataFactor_kernel,
// GradientFactor_kernel, MatchFactor_kernel (one hypothesis) and
// MakeMatrix_kernel run one after another.
#pragma once

#include "common/hd.h"
#include "pixel/pcg.h"
#include "pixel/robust_factors.h"
#include "pixel/system_matrix.h"

namespace vemo {

// The planes one assembly reads and writes (layouts of pixel/system_matrix.h
// and pixel/motion_tensor.h).
struct AssemblyInputs {
  const float *ST, *ST2, *du, *dv, *u, *v, *geoU, *geoV, *geoConf, *diffX, *diffY;
  float *devMatrix, *b;
};

VEMO_INLINE void assembleAt(const AssemblyInputs& a, int x, int y, int height, int width, int pitch, float alpha,
                            float beta, float gamma) {
  const int i = y * pitch + x;
  const int plane = pitch * height;
  const float pd = dataWeight(a.ST, i, plane, a.du[i], a.dv[i]);
  const float pg = gradientWeight(a.ST2, i, plane, a.du[i], a.dv[i], gamma);
  float pm, mu, mv;
  matchSingle(a.u, a.v, a.du, a.dv, a.geoU, a.geoV, a.geoConf, i, beta, pm, mu, mv);
  const Neighbours n = neighboursOf(x, y, height, width);
  makeMatrixAt(a.devMatrix, a.b, pd, pg, pm, mu, mv, a.ST, a.ST2, a.u, a.v, a.diffX, a.diffY, i, plane, pitch,
               n.north, n.west, n.east, n.south, alpha);
}

}  // namespace vemo
