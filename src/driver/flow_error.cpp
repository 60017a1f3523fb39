// Error measures of a flow field against a reference flow. Reference files
// mark unknown vectors with components of 1e9 or more.
#include <cmath>
#include <cstdio>
#include <limits>

#include "common/diagnostics.h"
#include "driver/optic_flow.h"
#include "driver/vemo.h"
#include "image/exceptions.h"

namespace {

bool hasTwoPlanes(const CTensor<float>& t) {
  return t.planeSize() == 0 || (t.zSize >= 2 && t.data != nullptr);
}

[[noreturn]] void rejectSizes(const char* who, const CTensor<float>& flow,
                              const CTensor<float>& reference) {
  vemo::reportf(stderr,
               "Exception ETensorIncompatibleSize: %s needs two-plane fields of matching size, "
               "flow is %d x %d x %d, reference is %d x %d x %d\n",
               who, flow.xSize, flow.ySize, flow.zSize, reference.xSize, reference.ySize,
               reference.zSize);
  throw ETensorIncompatibleSize();
}

}  // namespace

float aae(CTensor<float> flow, CTensor<float> reference) {
  if (flow.xSize != reference.xSize || flow.ySize != reference.ySize || !hasTwoPlanes(flow) ||
      !hasTwoPlanes(reference))
    rejectSizes("aae", flow, reference);
  const long n = static_cast<long>(flow.planeSize());
  // Single-precision literals one unit in the last place below the floats
  // nearest to pi and 2 pi.
  const float pi = 3.1415925f;
  const float twoPi = 6.283185f;
  float sum = 0;
  for (long i = 0; i < n; ++i) {
    const float u = flow.data[i], v = flow.data[n + i];
    const float ru = reference.data[i], rv = reference.data[n + i];
    // Components of 1e9 or more mark unknown flow: skipped, still counted in
    // n. NaN is not unknown flow: its angle is NaN, and so is the result.
    if (ru >= 1e9 || rv >= 1e9) continue;
    const double a1 = std::atan2(static_cast<double>(v), static_cast<double>(u));
    const double a2 = std::atan2(static_cast<double>(rv), static_cast<double>(ru));
    float d = static_cast<float>(a1 - a2);
    if (d > pi) d -= twoPi;
    if (d < -pi) d += twoPi;
    sum += std::fabs(d);
  }
  return sum / n * 180 / pi;
}

float COpticFlow::angularError(CTensor<float>& flow, CTensor<float>& reference) {
  const int width = flow.xSize;
  const int height = flow.ySize;
  if (height <= 0) return std::numeric_limits<float>::quiet_NaN();
  const int refWidth = reference.xSize;
  const int refHeight = reference.ySize;
  if (refWidth < width || refHeight < height || !hasTwoPlanes(flow) || !hasTwoPlanes(reference))
    rejectSizes("angularError", flow, reference);

  float sum = 0;
  int count = 0;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float u = flow.data[static_cast<size_t>(y) * width + x];
      const float v = flow.data[static_cast<size_t>(height + y) * width + x];
      const float ru = reference.data[static_cast<size_t>(y) * refWidth + x];
      const float rv = reference.data[static_cast<size_t>(refHeight + y) * refWidth + x];
      // Written so that a NaN reference component is not counted either.
      if (!(std::fabs(ru) <= 1e9f && std::fabs(rv) <= 1e9f)) continue;
      const float dot = ru * u + rv * v;
      const float refSquared = ru * ru + rv * rv;
      const float flowSquared = u * u + v * v;
      float c = static_cast<float>((dot + 1.0) /
                                   std::sqrt((refSquared + 1.0) * (flowSquared + 1.0)));
      if (c > 1) c = 1;
      if (c < -1) c = -1;
      sum += std::acos(static_cast<double>(c)) * 57.29577866666166;
      ++count;
    }
  }
  return sum / count;
}
