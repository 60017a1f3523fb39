#include "driver/presets.h"

#include <stdexcept>

namespace {

// One preset: every value it sets, in one row. Measured time and error of
// each row: docs/performance.md ("Presets").
struct Row {
  const char* name;
  const char* summary;
  float sigma, alpha, beta, gamma, eta;
  int fixedPointIterations, solverIterations;
  // matching: grid step, search radius, reduction of the frames
  int gridStep, radius, matchDownscale;
  // schedule: finest level solved, extra full-size passes (their fixed-point
  // iterations, -1 as the levels'; their solver iterations as a multiple),
  // largest level scale that keeps the match term
  int finestLevel, extraPasses, extraFixedPoint, extraSolverFactor;
  float matchTermMaxScale;
  double smoothnessEpsilon;  // of the smoothness weights; the method's: 1e-6
};

constexpr Row kRows[] = {
    // name       summary
    //   sigma alpha beta gamma eta    fp  cg  grid radius down finest extra xfp xcg mtmax  epsilon
    {"ultrafast", "fastest: a sparse matching grid, a short pyramid ending at half size",
     0.0f, 30.0f, 300.0f, 5.0f, 0.8f, 2, 10, 16, 40, 1, 3, 1, 1, 2, 1.0f, 1e-3},
    {"fast", "a few times faster than default, nearly as accurate",
     0.8f, 30.0f, 300.0f, 5.0f, 0.85f, 3, 10, 12, 40, 1, 0, 2, 3, 2, 1.0f, 1e-3},
    {"default", "the method's own parameters",
     0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10, 4, 80, 1, 0, 5, -1, 2, 1.0f, 1e-6},
    {"quality", "most accurate: finer presmoothing, ten extra full-size passes",
     0.5f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10, 4, 80, 1, 0, 10, -1, 2, 1.0f, 1e-6},
};

FlowPreset presetOf(const Row& r) {
  FlowParameters p{r.alpha, r.beta, r.gamma, r.eta, r.fixedPointIterations, r.solverIterations};
  p.matching.gridStep = r.gridStep;
  p.matching.radius = r.radius;
  p.matching.downscale = r.matchDownscale;
  p.variational.finestLevel = r.finestLevel;
  p.variational.extraPasses = r.extraPasses;
  p.variational.extraFixedPointIterations = r.extraFixedPoint;
  p.variational.extraSolverFactor = r.extraSolverFactor;
  p.variational.matchTermMaxScale = r.matchTermMaxScale;
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
