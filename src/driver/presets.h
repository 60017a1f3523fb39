// Named operating points of the method, from the fastest to the most
// accurate. Each preset is one row of values (presets.cpp) that sets the
// presmoothing, the method's seven parameters and the knobs of the matching
// and of the coarse-to-fine schedule; options given explicitly override the
// preset's values. `default` is the method itself, bit for bit.
#pragma once

#include <string>
#include <vector>

#include "driver/flow_stages.h"

struct FlowPreset {
  std::string name;
  std::string summary;  // one line for --help
  float sigma;          // presmoothing standard deviation
  FlowParameters parameters;
};

// The presets, fastest first.
const std::vector<FlowPreset>& flowPresets();

// "ultrafast, fast, default, quality": the names, in table order.
std::string presetNames();

// The preset called `name`. An unknown name throws std::invalid_argument
// whose message lists the valid names.
const FlowPreset& findPreset(const std::string& name);
