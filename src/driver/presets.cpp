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
};

constexpr Row kRows[] = {
    // name       summary
    //   sigma alpha beta gamma eta    fp  cg  grid radius down finest extra xfp xcg mtmax
    {"ultrafast", "fastest: reduced matching and a short schedule",
     0.8f, 30.0f, 300.0f, 5.0f, 0.8f, 3, 5, 8, 40, 1, 3, 1, 3, 2, 1.0f},
    {"fast", "a few times faster than default, slightly less accurate",
     0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10, 8, 40, 1, 14, 1, -1, 2, 1.0f},
    {"default", "the method's own parameters",
     0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10, 4, 80, 1, 0, 5, -1, 2, 1.0f},
    {"quality", "most accurate, several times slower than default",
     0.8f, 30.0f, 300.0f, 5.0f, 0.95f, 5, 10, 4, 80, 1, 0, 5, -1, 2, 1.0f},
};

FlowPreset presetOf(const Row& r) {
  FlowParameters p{r.alpha, r.beta, r.gamma, r.eta, r.fixedPointIterations, r.solverIterations};
  p.matching.gridStep = r.gridStep;
  p.matching.radius = r.radius;
  p.matching.downscale = r.matchDownscale;
  p.pyramid.finestLevel = r.finestLevel;
  p.pyramid.extraPasses = r.extraPasses;
  p.pyramid.extraFixedPointIterations = r.extraFixedPoint;
  p.pyramid.extraSolverFactor = r.extraSolverFactor;
  p.pyramid.matchTermMaxScale = r.matchTermMaxScale;
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
  throw std::invalid_argument("unknown preset '" + name + "'; the presets are " + presetNames());
}
