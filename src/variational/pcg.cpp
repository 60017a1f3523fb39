#include "variational/pcg.h"

#include <cstdio>

#include "common/diagnostics.h"

namespace vemo {

RepeatKey repeatKeyOf(const SolveArgs& a) {
  // Every field: a new one must be added here too.
  static_assert(sizeof(SolveArgs) == 4 * sizeof(void*) + 4 * sizeof(int) + sizeof(CGtmp), "update the key");
  static_assert(sizeof(CGtmp) == 6 * sizeof(float*), "update the key");
  RepeatKey key;
  key.add(a.A).add(a.b).add(a.du).add(a.dv);
  key.add(static_cast<long long>(a.height)).add(static_cast<long long>(a.width));
  key.add(static_cast<long long>(a.pitch)).add(static_cast<long long>(a.iterations));
  key.add(a.cg.r).add(a.cg.z).add(a.cg.spare).add(a.cg.p).add(a.cg.q).add(a.cg.pNext);
  return key;
}

void gPCG(Backend& backend, const float* devMatrix, const float* b, float* du, float* dv, int height, int width,
          int pitch, int iterations, const CGtmp& tmp) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  if (dv != du + plane) {
    vemo::reportf(stderr, "gPCG: dv must start one plane (%zu floats) after du\n", plane);
    throw BackendError("gPCG: du and dv are not consecutive planes");
  }
  pcgSteps(backend, SolveArgs{devMatrix, b, du, dv, height, width, pitch, iterations, tmp});
}

}  // namespace vemo
