#include "driver/flow_metrics.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "common/diagnostics.h"
#include "driver/optic_flow.h"
#include "driver/vemo.h"
#include "image/exceptions.h"

namespace {

void checkSizes(const CTensor<float>& flow, const CTensor<float>& truth) {
  if (flow.zSize != 2 || truth.zSize != 2 || flow.xSize != truth.xSize || flow.ySize != truth.ySize ||
      flow.elements() == 0) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: flow %d x %d x %d and ground truth %d x %d x %d must be "
                 "the same non-empty two-plane size\n",
                 flow.xSize, flow.ySize, flow.zSize, truth.xSize, truth.ySize, truth.zSize);
    throw ETensorIncompatibleSize();
  }
}

double meanOrNaN(double sum, std::size_t count) {
  return count > 0 ? sum / static_cast<double>(count) : std::numeric_limits<double>::quiet_NaN();
}

std::string number(double value, const char* format) {
  if (std::isnan(value)) return "n/a";
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string jsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  char text[64];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

bool missingFlow(const CTensor<float>& flow, std::size_t i, std::size_t plane) {
  return !std::isfinite(flow.data[i]) || !std::isfinite(flow.data[plane + i]);
}

}  // namespace

bool unknownTruth(float u, float v) { return !std::isfinite(u) || !std::isfinite(v) || u >= 1e9f || v >= 1e9f; }

CTensor<float> endPointErrors(const CTensor<float>& flow, const CTensor<float>& truth) {
  checkSizes(flow, truth);
  const std::size_t plane = flow.planeSize();
  CTensor<float> errors(flow.xSize, flow.ySize, 1);
  for (std::size_t i = 0; i < plane; ++i) {
    const float tu = truth.data[i], tv = truth.data[plane + i];
    if (unknownTruth(tu, tv)) {
      errors.data[i] = std::numeric_limits<float>::quiet_NaN();
      continue;
    }
    if (missingFlow(flow, i, plane)) {
      errors.data[i] = std::numeric_limits<float>::infinity();
      continue;
    }
    const double du = static_cast<double>(flow.data[i]) - tu, dv = static_cast<double>(flow.data[plane + i]) - tv;
    errors.data[i] = static_cast<float>(std::sqrt(du * du + dv * dv));
  }
  return errors;
}

FlowMetrics evaluateFlow(const CTensor<float>& flow, const CTensor<float>& truth) {
  checkSizes(flow, truth);
  FlowMetrics m;
  m.width = flow.xSize;
  m.height = flow.ySize;
  const std::size_t plane = flow.planeSize();
  // The truth as both angular measures expect it: every unknown vector
  // marked with components above 1e9, which both of them skip (and, for the
  // classic angular error, every pixel whose flow is missing).
  CTensor<float> marked = truth;
  double sum = 0.0, bandSum[3] = {0.0, 0.0, 0.0};
  std::size_t over1 = 0, over3 = 0;
  for (std::size_t i = 0; i < plane; ++i) {
    const float tu = truth.data[i], tv = truth.data[plane + i];
    if (unknownTruth(tu, tv)) {
      marked.data[i] = marked.data[plane + i] = 1e10f;
      m.nonFinite += !std::isfinite(tu) || !std::isfinite(tv);
      continue;
    }
    ++m.known;
    if (missingFlow(flow, i, plane)) {
      ++m.missing;
      ++over1;
      ++over3;
      marked.data[i] = marked.data[plane + i] = 1e10f;
      continue;
    }
    const double du = static_cast<double>(flow.data[i]) - tu, dv = static_cast<double>(flow.data[plane + i]) - tv;
    const double e = std::sqrt(du * du + dv * dv);
    const double motion = std::sqrt(static_cast<double>(tu) * tu + static_cast<double>(tv) * tv);
    const int band = motion < 10.0 ? 0 : (motion <= 40.0 ? 1 : 2);
    ++m.measured;
    sum += e;
    bandSum[band] += e;
    ++m.bandPixels[band];
    over1 += e > 1.0;
    over3 += e > 3.0;
  }
  m.epe = meanOrNaN(sum, m.measured);
  m.over1 = meanOrNaN(static_cast<double>(over1), m.known);
  m.over3 = meanOrNaN(static_cast<double>(over3), m.known);
  for (int b = 0; b < 3; ++b) m.bandEpe[b] = meanOrNaN(bandSum[b], m.bandPixels[b]);
  CTensor<float> flowCopy = flow;
  // aae() divides by every pixel: a missing vector has no direction to
  // count and cannot be left out of the divisor.
  m.aae = m.missing > 0 ? std::numeric_limits<double>::quiet_NaN() : aae(flowCopy, marked);
  m.angularError =
      m.measured > 0 ? COpticFlow::angularError(flowCopy, marked) : std::numeric_limits<double>::quiet_NaN();
  return m;
}

std::string metricsText(const FlowMetrics& m) {
  std::string out;
  char line[160];
  std::snprintf(line, sizeof line, "pixels          %d x %d, %zu with known ground truth", m.width, m.height,
                m.known);
  out += line;
  if (m.nonFinite > 0) {
    std::snprintf(line, sizeof line, " (%zu more not finite: left out)", m.nonFinite);
    out += line;
  }
  out += "\n";
  if (m.missing > 0) {
    std::snprintf(line, sizeof line,
                  "missing         %zu flow vectors not finite: beyond every threshold, outside the means\n",
                  m.missing);
    out += line;
    std::snprintf(line, sizeof line, " over %zu of %zu vectors (%zu missing)\n", m.measured, m.known, m.missing);
  } else {
    std::snprintf(line, sizeof line, " over %zu vectors\n", m.measured);
  }
  out += "EPE             " + number(m.epe, "%.4f px") + line;
  out += "AAE             " + (m.missing > 0 ? std::string("n/a (flow vectors missing)") : number(m.aae, "%.4f deg")) +
         "\n";
  out += "angular error   " + number(m.angularError, "%.4f deg") + "\n";
  out += "EPE > 1 px      " + number(100.0 * m.over1, "%.2f %%") + "\n";
  out += "EPE > 3 px      " + number(100.0 * m.over3, "%.2f %%") + "\n";
  const char* names[3] = {"EPE s0-10       ", "EPE s10-40      ", "EPE s40+        "};
  for (int b = 0; b < 3; ++b) {
    std::snprintf(line, sizeof line, " (%zu pixels)\n", m.bandPixels[b]);
    out += names[b] + number(m.bandEpe[b], "%.4f px") + line;
  }
  return out;
}

std::string metricsJson(const FlowMetrics& m) {
  std::string out = "{";
  out += "\"width\": " + std::to_string(m.width) + ", \"height\": " + std::to_string(m.height);
  out += ", \"known_pixels\": " + std::to_string(m.known);
  out += ", \"nonfinite_pixels\": " + std::to_string(m.nonFinite);
  out += ", \"missing_vectors\": " + std::to_string(m.missing);
  out += ", \"measured_vectors\": " + std::to_string(m.measured);
  out += ", \"epe\": " + jsonNumber(m.epe);
  out += ", \"aae\": " + jsonNumber(m.aae);
  out += ", \"angular_error\": " + jsonNumber(m.angularError);
  out += ", \"over_1px\": " + jsonNumber(m.over1);
  out += ", \"over_3px\": " + jsonNumber(m.over3);
  const char* names[3] = {"s0_10", "s10_40", "s40plus"};
  for (int b = 0; b < 3; ++b) {
    out += std::string(", \"epe_") + names[b] + "\": " + jsonNumber(m.bandEpe[b]);
    out += std::string(", \"pixels_") + names[b] + "\": " + std::to_string(m.bandPixels[b]);
  }
  out += "}\n";
  return out;
}
