// Error measures of a flow field against a ground-truth flow.
#pragma once

#include <cstddef>
#include <string>

#include "image/tensor.h"

struct FlowMetrics {
  int width = 0, height = 0;
  std::size_t known = 0;      // pixels with known ground truth
  std::size_t nonFinite = 0;  // pixels whose ground truth is NaN or infinite (unknown too)
  // Known pixels whose flow vector is not finite: missing. They count
  // beyond every threshold and are left out of the means.
  std::size_t missing = 0;
  std::size_t measured = 0;   // known pixels with a finite flow vector: the means' divisor
  double epe = 0.0;           // mean end-point error (pixels) over the measured pixels
  double aae = 0.0;           // aae(): direction only, divided by all pixels; NaN when vectors are missing
  double angularError = 0.0;  // classic space-time angular error (degrees), over the measured pixels
  double over1 = 0.0;         // share of known pixels with end-point error > 1 px (or missing)
  double over3 = 0.0;         // ... > 3 px
  // Mean end-point error by true-motion length: < 10, 10..40, > 40 pixels
  // (NaN where a band has no pixel) and the measured pixels in each band.
  double bandEpe[3] = {0.0, 0.0, 0.0};
  std::size_t bandPixels[3] = {0, 0, 0};
};

// Whether a ground-truth vector is unknown: a component of 1e9 or more, or
// not finite.
bool unknownTruth(float u, float v);

// Measures flow against truth (both W x H x 2). Unknown ground truth is left
// out of every measure (the aae divisor excepted, which counts all pixels).
// A flow vector that is not finite where the truth is known is missing: it
// is beyond every threshold, outside the means, and makes the aae (whose
// divisor counts it) NaN.
// Fields of different sizes print a message and throw
// ETensorIncompatibleSize. With no known pixel the means are NaN.
FlowMetrics evaluateFlow(const CTensor<float>& flow, const CTensor<float>& truth);

// Per-pixel end-point error (W x H x 1), NaN where the truth is unknown,
// infinite where the flow vector is missing.
CTensor<float> endPointErrors(const CTensor<float>& flow, const CTensor<float>& truth);

// Human-readable report, one measure a line.
std::string metricsText(const FlowMetrics& m);
// One JSON object; NaN means are written as null.
std::string metricsJson(const FlowMetrics& m);
