// vemo::Parameters: ranges and presets.
#include <cmath>
#include <cstdio>
#include <string>

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
  Parameters p;
  if (name == "default") return p;
  std::string names;
  for (const std::string& known : preset_names()) names += (names.empty() ? "" : ", ") + known;
  throw InvalidInput("unknown preset \"" + name + "\"; the presets are " + names);
}

std::vector<std::string> Parameters::preset_names() { return {"default"}; }

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
