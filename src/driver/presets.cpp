#include "driver/presets.h"

#include <stdexcept>

namespace {

// One preset: every value it sets, in one row. Measured time and error of
// each row: docs/performance.md ("Presets").
struct Row {
  const char* name;
  const char* summary;  // measured time and error against default's
  float sigma, alpha, beta, gamma, eta;
  int fixedPointIterations, solverIterations;
  // matching: grid step, search radius (pixels of the frames it works on)
  // and the factor the frames are reduced by first
  int gridStep, radius, matchDownscale;
  // schedule: finest pyramid level solved, full-size passes after it and
  // their fixed-point iterations (-1: as the levels')
  int finestLevel, extraPasses, extraFixedPoint;
  double smoothnessEpsilon;  // of the smoothness weights; the method's: 1e-6
};

constexpr Row kRows[] = {
    //           sigma alpha   beta  gamma eta    fp  cg  grid rad down finest extra xfp  epsilon
    {"ultrafast", "0.06x default's time, 1.32x its error",
                 0.8f, 30.0f, 300.0f, 5.0f, 0.8f,  2, 10, 12, 32, 2,   3,     1,    1,   1e-2},
    {"fast", "0.29x default's time, 1.04x its error",
                 0.5f, 30.0f, 300.0f, 5.0f, 0.9f,  3, 10, 12, 40, 1,   0,     2,    3,   1e-3},
    {"default", "the vemo program's result, bit for bit",
                 0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10, 4,  80, 1,   0,     5,    -1,  1e-6},
    {"quality", "2.3x default's time, 0.94x its error",
                 0.5f, 30.0f, 300.0f, 5.0f, 0.97f, 5, 20, 4,  80, 1,   0,     10,   -1,  1e-6},
};

FlowPreset presetOf(const Row& r) {
  FlowParameters p{r.alpha, r.beta, r.gamma, r.eta, r.fixedPointIterations, r.solverIterations};
  p.matching.gridStep = r.gridStep;
  p.matching.radius = r.radius;
  p.matching.downscale = r.matchDownscale;
  p.variational.finestLevel = r.finestLevel;
  p.variational.extraPasses = r.extraPasses;
  p.variational.extraFixedPointIterations = r.extraFixedPoint;
  p.variational.smoothnessEpsilon = r.smoothnessEpsilon;
  return FlowPreset{r.name, r.summary, r.sigma, p};
}

}  // namespace

const std::vector<FlowPreset>& flowPresets() {
  static const std::vector<FlowPreset> presets = [] {
    std::vector<FlowPreset> out;
    for (const Row& r : kRows) out.push_back(presetOf(r));
    return out;
  }();
  return presets;
}

std::string presetNames() {
  std::string names;
  for (const FlowPreset& p : flowPresets()) names += (names.empty() ? "" : ", ") + p.name;
  return names;
}

const FlowPreset& findPreset(const std::string& name) {
  for (const FlowPreset& p : flowPresets())
    if (p.name == name) return p;
  throw std::invalid_argument("unknown preset \"" + name + "\"; the presets are " + presetNames());
}
