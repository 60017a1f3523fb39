// Flow pictures and error measures.
#include <cmath>
#include <string>

#include "api/failures.h"
#include "api/frames.h"
#include "driver/flow_metrics.h"
#include "driver/flow_picture.h"
#include "driver/occlusion.h"
#include "image/image_limits.h"
#include "vemo/errors.hpp"
#include "vemo/tools.hpp"

namespace vemo {

namespace {
void checkFlow(const Flow& flow, const char* what) {
  if (flow.empty()) throw InvalidInput(std::string(what) + " is empty");
  if (static_cast<std::size_t>(flow.width()) * static_cast<std::size_t>(flow.height()) > NImageIO::kMaxImagePixels)
    throw InvalidInput(std::string(what) + " is larger than the largest accepted frame (" +
                       std::to_string(NImageIO::kMaxImagePixels) + " pixels)");
}

// InvalidInput unless both fields are usable and of one size.
void checkPairOfFlows(const Flow& a, const char* nameA, const Flow& b, const char* nameB) {
  checkFlow(a, nameA);
  checkFlow(b, nameB);
  if (a.width() != b.width() || a.height() != b.height())
    throw InvalidInput(std::string(nameA) + " is " + std::to_string(a.width()) + " x " + std::to_string(a.height()) +
                       " but " + nameB + " is " + std::to_string(b.width()) + " x " + std::to_string(b.height()));
}

}  // namespace

Image flow_to_rgb(const Flow& flow, float max_flow, bool legend) {
  checkFlow(flow, "flow");
  if (!(max_flow >= 0.0f) || !std::isfinite(max_flow))
    throw InvalidInput("max_flow must be 0 (the longest vector) or a positive number of pixels");
  const CTensor<float> tensor = api::tensorFromFlow(flow);
  const CTensor<float> picture =
      api::translated(api::FailureKind::Compute, [&] { return flowPicture(tensor, max_flow, legend); });
  return api::pictureFromTensor(picture);
}

std::vector<std::uint8_t> occlusion_mask(const Flow& forward, const Flow& backward) {
  checkPairOfFlows(forward, "forward", backward, "backward");
  const CTensor<float> f = api::tensorFromFlow(forward), b = api::tensorFromFlow(backward);
  const CTensor<float> mask = api::translated(api::FailureKind::Compute, [&] { return occlusionMask(f, b); });
  std::vector<std::uint8_t> occluded(mask.planeSize());
  for (std::size_t i = 0; i < occluded.size(); ++i) occluded[i] = mask.data[i] != 0.0f ? 1 : 0;
  return occluded;
}

Evaluation evaluate(const Flow& flow, const Flow& truth) {
  checkPairOfFlows(flow, "flow", truth, "truth");
  const CTensor<float> f = api::tensorFromFlow(flow), t = api::tensorFromFlow(truth);
  const FlowMetrics m = api::translated(api::FailureKind::Compute, [&] { return evaluateFlow(f, t); });
  Evaluation e;
  e.width = m.width;
  e.height = m.height;
  e.known_pixels = m.known;
  e.nonfinite_pixels = m.nonFinite;
  e.missing_vectors = m.missing;
  e.measured_vectors = m.measured;
  e.epe = m.epe;
  e.aae = m.aae;
  e.angular_error = m.angularError;
  e.over_1px = m.over1;
  e.over_3px = m.over3;
  for (int b = 0; b < 3; ++b) {
    e.band_epe[b] = m.bandEpe[b];
    e.band_pixels[b] = m.bandPixels[b];
  }
  return e;
}

}  // namespace vemo
