// The linearised Euler-Lagrange system of one fixed-point step.
//
// Per pixel the unknowns are (du, dv). The system matrix is stored as planes
// of pitch * height floats:
//   0  A11, diagonal of the du equation
//   1  A12 (the copy read by the preconditioner and the dv row of the residual)
//   2  A12 (the copy read by the product and the du row of the residual)
//   3  A22, diagonal of the dv equation
//   4, 6, 8, 10  couplings to the north, west, east and south neighbours,
//                shared by both equations
// Planes 5, 7 and 9 are never written or read. The right-hand side b holds
// two planes (du equation, dv equation).
#pragma once

#include <cmath>

#include "common/hd.h"

namespace vemo {

enum MatrixPlane : int {
  kA11 = 0,
  kA12Precond = 1,
  kA12Product = 2,
  kA22 = 3,
  kNorth = 4,
  kWest = 6,
  kEast = 8,
  kSouth = 10,
  kMatrixPlanes = 12,
};

// A coupling to a neighbour: the edge weight s = alpha * diffusivity enters
// the diagonal with +s, the off-diagonal with -s, and moves the right-hand
// side by s times the flow difference across the edge (the smoothness term
// acts on u + du, and u is known).
VEMO_INLINE void addNeighbour(float s, float un, float vn, float uc, float vc, float& a11, float& a22, float& b1,
                              float& b2, float& coupling) {
  coupling = -s;
  b1 = fmaf(s, un - uc, b1);
  b2 = fmaf(s, vn - vc, b2);
  a11 = a11 + s;
  a22 = a22 + s;
}

// The part of a pixel's matrix row that comes from its own weights: the 2 x 2
// block and the right-hand side before the neighbours are added.
struct DataBlock {
  float a11, a12, a22, b1, b2;
};

VEMO_INLINE DataBlock dataBlockAt(float pd, float pg, float pm, float mu, float mv, const float* ST, const float* ST2,
                                  int i, int plane) {
  // Each bracket: the gradient term's product, then the data term fused on.
  DataBlock k;
  k.a11 = pm + fmaf(ST[i], pd, ST2[i] * pg);
  k.a12 = fmaf(ST[i + 3 * plane], pd, ST2[i + 3 * plane] * pg);
  k.a22 = pm + fmaf(ST[i + plane], pd, ST2[i + plane] * pg);
  k.b1 = -(mu + fmaf(ST[i + 4 * plane], pd, ST2[i + 4 * plane] * pg));
  k.b2 = -(mv + fmaf(ST[i + 5 * plane], pd, ST2[i + 5 * plane] * pg));
  return k;
}

// The matrix row and right-hand side at index i from the pixel's data block
// and the neighbours that exist. Missing neighbours (image border) get a
// zero coupling: a homogeneous Neumann boundary.
VEMO_INLINE void smoothnessRowAt(float* devMatrix, float* b, DataBlock k, const float* u, const float* v,
                                 const float* diffX, const float* diffY, int i, int plane, int pitch, bool hasNorth,
                                 bool hasWest, bool hasEast, bool hasSouth, float alpha) {
  float a11 = k.a11, a22 = k.a22, b1 = k.b1, b2 = k.b2;
  const float uc = u[i], vc = v[i];
  float north = 0.0f, west = 0.0f, east = 0.0f, south = 0.0f;
  if (hasNorth) addNeighbour(alpha * diffY[i - pitch], u[i - pitch], v[i - pitch], uc, vc, a11, a22, b1, b2, north);
  if (hasWest) addNeighbour(alpha * diffX[i - 1], u[i - 1], v[i - 1], uc, vc, a11, a22, b1, b2, west);
  if (hasEast) addNeighbour(alpha * diffX[i], u[i + 1], v[i + 1], uc, vc, a11, a22, b1, b2, east);
  if (hasSouth) addNeighbour(alpha * diffY[i], u[i + pitch], v[i + pitch], uc, vc, a11, a22, b1, b2, south);
  devMatrix[i + kA11 * plane] = a11;
  devMatrix[i + kA12Precond * plane] = k.a12;
  devMatrix[i + kA12Product * plane] = k.a12;
  devMatrix[i + kA22 * plane] = a22;
  devMatrix[i + kNorth * plane] = north;
  devMatrix[i + kWest * plane] = west;
  devMatrix[i + kEast * plane] = east;
  devMatrix[i + kSouth * plane] = south;
  b[i] = b1;
  b[i + plane] = b2;
}

// The matrix row and right-hand side at index i from the pixel's weights
// (data pd, gradient pg, match pm with its sums mu, mv) and the neighbours
// that exist.
VEMO_INLINE void makeMatrixAt(float* devMatrix, float* b, float pd, float pg, float pm, float mu, float mv,
                              const float* ST, const float* ST2, const float* u, const float* v, const float* diffX,
                              const float* diffY, int i, int plane, int pitch, bool hasNorth, bool hasWest,
                              bool hasEast, bool hasSouth, float alpha) {
  smoothnessRowAt(devMatrix, b, dataBlockAt(pd, pg, pm, mu, mv, ST, ST2, i, plane), u, v, diffX, diffY, i, plane,
                  pitch, hasNorth, hasWest, hasEast, hasSouth, alpha);
}

// MakeMatrix_kernel at pixel (x, y).
VEMO_INLINE void MakeMatrix_kernel(float* devMatrix, float* b, const float* dPsiData, const float* dPsiGradient,
                                   const float* dPsiMatch, const float* ST, const float* ST2, const float* matchU,
                                   const float* matchV, const float* u, const float* v, const float* diffX,
                                   const float* diffY, int x, int y, int height, int width, int pitch,
                                   float alpha) {
  const int i = y * pitch + x;
  makeMatrixAt(devMatrix, b, dPsiData[i], dPsiGradient[i], dPsiMatch[i], matchU[i], matchV[i], ST, ST2, u, v, diffX,
               diffY, i, pitch * height, pitch, y > 0, x > 0, x < width - 1, y < height - 1, alpha);
}

}  // namespace vemo
