// Pictures of flow fields, and error measures against ground truth.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vemo/flow.hpp"
#include "vemo/image.hpp"

namespace vemo {

// The colour coding of a flow field as a uint8 RGB image (hue: direction,
// brightness: length). Vectors of length max_flow or more reach full
// brightness; max_flow 0 uses the longest vector of the field. Unknown or
// non-finite vectors are black. With legend, a square panel (the picture's
// height, at least 32 pixels) showing the colour wheel at the same scale is
// added on the right, on white. InvalidInput for an empty flow or a
// negative or non-finite max_flow.
Image flow_to_rgb(const Flow& flow, float max_flow = 0.0f, bool legend = false);

// Where a forward flow and the backward flow at its target do not cancel:
// width x height bytes, row by row, 1 where the pixel is hidden in frame 2
// or leaves the frame (the mask of Engine::flow_pair). With f the forward
// vector and b the backward flow sampled bilinearly at x + f, a pixel is
// occluded when |f + b|^2 > 0.01 (|f|^2 + |b|^2) + 0.5, when x + f lies
// outside the frame, or when a vector is not finite. InvalidInput when the
// fields differ in size or are empty.
std::vector<std::uint8_t> occlusion_mask(const Flow& forward, const Flow& backward);

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
