// The scratch sets of the fixed-point iteration and of the conjugate-gradient
// solver: plain records of plane pointers. The control flow allocates them
// once per run at full-frame size (planes of full pitch * full height
// floats); every pyramid level uses only its own pitch * height share of
// each buffer.
#pragma once

namespace vemo {

// Fixed-point iteration buffers (plane counts in brackets).
struct FPtmp {
  float* du = nullptr;            // [2] increment: du, then dv one plane later
  float* ST = nullptr;            // [6] brightness-constancy motion tensor
  float* ST2 = nullptr;           // [6] gradient-constancy motion tensor
  float* dPsiData = nullptr;      // [1] data-term weight
  float* dPsiGradient = nullptr;  // [1] gradient-term weight (gamma included)
  float* dPsiMatch = nullptr;     // [1] match-term weight
  float* matchU = nullptr;        // [1] match-term right-hand side, x
  float* matchV = nullptr;        // [1] match-term right-hand side, y
  float* diffX = nullptr;         // [1] diffusivity of horizontal edges
  float* diffY = nullptr;         // [1] diffusivity of vertical edges
  float* devMatrix = nullptr;     // [12] system matrix (pixel/system_matrix.h)
  float* b = nullptr;             // [2] right-hand side
  float* flowSum = nullptr;       // [1] u + du (or v + dv) for the diffusivity
  float* flowDerivative = nullptr;  // [1] its central derivative
  float* derivatives = nullptr;   // [8] one channel's Ix, Iy, Iz, Ixx, Ixy, Iyy, Ixz, Iyz
};

// Conjugate-gradient buffers, each a two-plane vector over (du, dv).
struct CGtmp {
  float* r = nullptr;      // residual
  float* z = nullptr;      // preconditioned residual
  float* spare = nullptr;  // allocated with the others, not used by the solver
  float* p = nullptr;      // search direction
  float* q = nullptr;      // matrix times search direction
  float* pNext = nullptr;  // the next search direction (p and pNext alternate)
};

}  // namespace vemo
