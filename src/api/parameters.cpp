// vemo::Parameters: ranges and presets.
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "driver/presets.h"
#include "vemo/errors.hpp"
#include "vemo/parameters.hpp"

namespace vemo {

namespace {

// A number as a person would write it: whole numbers without decimals.
std::string shown(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

// The bounds are compared as floats, the precision the values are kept in.
void requireRange(const char* name, double value, double low, double high, const char* range) {
  if (!(value >= low && value <= high))
    throw InvalidInput(std::string(name) + " must be " + range + ", not " + shown(value));
}

}  // namespace

Parameters Parameters::from_preset(const std::string& name) {
  const FlowPreset* preset = nullptr;
  try {
    preset = &findPreset(name);
  } catch (const std::invalid_argument& e) {
    throw InvalidInput(e.what());
  }
  Parameters p;
  p.sigma = preset->sigma;
  p.alpha = preset->parameters.alpha;
  p.beta = preset->parameters.beta;
  p.gamma = preset->parameters.gamma;
  p.eta = preset->parameters.eta;
  p.fixed_point_iters = preset->parameters.fixedPointIterations;
  p.solver_iters = preset->parameters.solverIterations;
  p.preset = name;
  return p;
}

std::vector<std::string> Parameters::preset_names() {
  std::vector<std::string> names;
  for (const FlowPreset& preset : flowPresets()) names.push_back(preset.name);
  return names;
}

void Parameters::validate() const {
  requireRange("sigma", sigma, 0.0, 100.0, "a number from 0 to 100");
  requireRange("alpha", alpha, 0.0, 1e6, "a number from 0 to 1e6");
  requireRange("beta", beta, 0.0, 1e6, "a number from 0 to 1e6");
  requireRange("gamma", gamma, 0.0, 1e6, "a number from 0 to 1e6");
  if (!std::isfinite(eta)) throw InvalidInput("eta must be a finite number, not " + shown(eta));
  if (eta == 1.0f)
    throw InvalidInput("eta cannot be 1 (a pyramid that never shrinks has no number of scales; the default is 0.95)");
  requireRange("fixed_point_iters", fixed_point_iters, 0, 1000, "a whole number from 0 to 1000");
  requireRange("solver_iters", solver_iters, 0, 10000, "a whole number from 0 to 10000");
  from_preset(preset);
}

}  // namespace vemo
