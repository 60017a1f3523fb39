// Pictures of flow fields, and error measures against ground truth.
#pragma once

#include <cstddef>

#include "vemo/flow.hpp"
#include "vemo/image.hpp"

namespace vemo {

// The colour coding of a flow field as a uint8 RGB image (hue: direction,
// brightness: length). Vectors of length max_flow or more reach full
// brightness; max_flow 0 uses the longest vector of the field. Unknown or
// non-finite vectors are black. InvalidInput for an empty flow or a
// negative or non-finite max_flow.
Image flow_to_rgb(const Flow& flow, float max_flow = 0.0f);

// Error measures of a flow against ground truth (the measures of
// `vemo-eval`). Pixels whose truth is unknown (a component of 1e9 or more,
// or not finite) are left out of every measure. A flow vector that is not
// finite where the truth is known is missing: it counts beyond every
// threshold and is left out of the means.
struct Evaluation {
  int width = 0, height = 0;
  std::size_t known_pixels = 0;      // pixels with known ground truth
  std::size_t nonfinite_pixels = 0;  // of those, unknown because not finite
  std::size_t missing_vectors = 0;   // known pixels whose flow vector is not finite
  std::size_t measured_vectors = 0;  // known pixels with a finite flow vector: what the means are over
  double epe = 0.0;                  // mean end-point error in pixels (NaN without measured vectors)
  double aae = 0.0;                  // the `vemo` program's AAE: direction only, divided by all pixels;
                                     // NaN when vectors are missing
  double angular_error = 0.0;        // space-time angular error in degrees
  double over_1px = 0.0;             // share of known pixels with end-point error above 1 px, or missing
  double over_3px = 0.0;             // ... above 3 px
  // Mean end-point error by length of the true motion: below 10, 10 to 40,
  // above 40 pixels (NaN where a band is empty), and the pixels of each.
  double band_epe[3] = {0.0, 0.0, 0.0};
  std::size_t band_pixels[3] = {0, 0, 0};
};

// InvalidInput when the fields differ in size or are empty.
Evaluation evaluate(const Flow& flow, const Flow& truth);

}  // namespace vemo
