#include "variational/pcg.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <utility>

namespace flowcore {

int gPCG(Backend& backend, const float* devMatrix, const float* b, float* du, float* dv, int height, int width,
         int pitch, int iterations, const CGtmp& tmp) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  if (dv != du + plane) {
    std::fprintf(stderr, "gPCG: dv must start one plane (%zu floats) after du\n", plane);
    throw BackendError("gPCG: du and dv are not consecutive planes");
  }
  backend.clear(tmp.r, 2 * plane);
  backend.clear(tmp.z, 2 * plane);
  backend.clear(tmp.p, 2 * plane);
  backend.clear(tmp.q, 2 * plane);
  backend.clear(tmp.pNext, 2 * plane);
  backend.residual(devMatrix, b, du, dv, height, width, pitch, tmp.r);
  backend.blockJacobi(devMatrix, tmp.r, tmp.z, height, width, pitch);
  backend.copy(tmp.p, tmp.z, 2 * plane);

  // Each iteration needs two reductions: p . q and the new r . z, both
  // consumed where the backend keeps the solver's scalars. The convergence
  // test comes before the product, which is not needed once the solver stops.
  // The direction update p <- beta p + z of one iteration is done by the
  // product pass of the next, into the other direction buffer.
  float* p = tmp.p;
  float* pOther = tmp.pNext;
  backend.cgBegin(tmp.r, tmp.z, height, width, pitch);
  for (int k = 0; k < iterations && backend.cgActive(); ++k) {
    if (k == 0) {
      backend.cgFirstProduct(devMatrix, p, tmp.q, height, width, pitch);
    } else {
      backend.cgNextProduct(devMatrix, p, tmp.z, pOther, tmp.q, height, width, pitch);
      std::swap(p, pOther);
    }
    backend.cgUpdate(devMatrix, du, p, tmp.r, tmp.q, tmp.z, height, width, pitch);
  }
  return backend.cgIterations();
}

}  // namespace flowcore
