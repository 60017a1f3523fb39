// The method's parameters, and the presets they can start from.
#pragma once

#include <string>
#include <vector>

namespace vemo {

// The seven values of the method and the preset they started from. A
// default-constructed Parameters is the "default" preset: the result of the
// `vemo` program with its default arguments, bit for bit. Other presets
// trade accuracy for speed or the other way round; a preset may also set
// inner choices that have no field here (they follow `preset`). Start from
// a preset, then change any field:
//
//   vemo::Parameters p = vemo::Parameters::from_preset("fast");
//   p.alpha = 20;  // an explicit value overrides the preset's
struct Parameters {
  float sigma = 0.8f;                // presmoothing of both frames (Gaussian std. deviation; 0: none)
  float alpha = 30.0f;               // smoothness weight
  float beta = 300.0f;               // weight of the descriptor-matching term
  float gamma = 5.0f;                // weight of gradient constancy
  float eta = 0.95f;                 // pyramid scaling factor (outside 0..1: no pyramid; never 1)
  int fixed_point_iters = 5;         // outer (fixed-point) iterations per pyramid level
  int solver_iters = 10;             // conjugate-gradient iterations per outer iteration
  std::string preset = "default";    // the table the values came from

  // The values of a named preset. InvalidInput, listing the names, for an
  // unknown one.
  static Parameters from_preset(const std::string& name);

  // The preset names, fastest first.
  static std::vector<std::string> preset_names();

  // InvalidInput naming the first value outside its range: sigma 0..100;
  // alpha, beta, gamma 0..1e6; eta finite and not 1; fixed-point
  // iterations 0..1000; solver iterations 0..10000; a known preset.
  void validate() const;
};

}  // namespace vemo
