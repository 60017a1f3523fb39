// Lagged smoothness weights of one fixed-point step.
#pragma once

#include "backends/backend.h"

namespace vemo {

// diffX / diffY <- 1 / sqrt(S + 1e-6) on the horizontal / vertical edges,
// S the squared gradient magnitude of (u + du, v + dv) at the edge midpoint.
// u, v, du, dv are read only. `sum` and `derivative` are scratch planes of
// the level's pitch * height floats (a backend that fuses the pass leaves
// them alone). The last column of diffX and the last
// row of diffY are no edges; they end as 1000 and are never read.
void gDiffusivity(Backend& backend, const float* u, const float* v, const float* du, const float* dv,
                  float* diffX, float* diffY, int height, int width, int pitch, float* sum, float* derivative);

}  // namespace vemo
