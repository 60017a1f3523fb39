#include "driver/flow_picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "common/cancel.h"
#include "common/diagnostics.h"
#include "driver/optic_flow.h"
#include "image/exceptions.h"

namespace {

bool usable(float u, float v) { return std::isfinite(u) && std::isfinite(v) && u < 1e9f && v < 1e9f; }

// flowToImage brings vectors of length 2 * sqrt(2) * factor to full brightness.
float factorFor(float maxFlow) { return static_cast<float>(maxFlow / (2.0 * std::sqrt(2.0))); }

}  // namespace

float longestVector(const CTensor<float>& flow) {
  const size_t plane = flow.planeSize();
  float longest = 0.0f;
  if (flow.zSize < 2) return 0.0f;
  for (size_t i = 0; i < plane; ++i) {
    const float u = flow.data[i], v = flow.data[plane + i];
    if (usable(u, v)) longest = std::max(longest, std::sqrt(u * u + v * v));
  }
  return longest;
}

CTensor<float> flowPicture(const CTensor<float>& flow, float maxFlow, bool legend) {
  if (flow.zSize != 2 || flow.elements() == 0) {
    vemo::reportf(stderr, "Exception ETensorIncompatibleSize: a flow picture needs a non-empty two-plane field, got "
                 "%d x %d x %d\n", flow.xSize, flow.ySize, flow.zSize);
    throw ETensorIncompatibleSize();
  }
  if (!(maxFlow > 0.0f)) maxFlow = longestVector(flow);
  if (!(maxFlow > 0.0f)) maxFlow = 1.0f;  // a still field: any scale shows black
  // Colour-coded in bands of rows (each pixel alone, so the bands change
  // nothing), so that a cancelled computation stops between them.
  constexpr int kBandRows = 64;
  const size_t plane = flow.planeSize();
  CTensor<float> coded(flow.xSize, flow.ySize, 3);
  for (int y0 = 0; y0 < flow.ySize; y0 += kBandRows) {
    vemo::cancellationPoint();
    const int rows = std::min(kBandRows, flow.ySize - y0);
    const size_t offset = static_cast<size_t>(y0) * flow.xSize, count = static_cast<size_t>(rows) * flow.xSize;
    CTensor<float> band(flow.xSize, rows, 2), bandColours;
    for (size_t i = 0; i < count; ++i) {
      const float u = flow.data[offset + i], v = flow.data[plane + offset + i];
      const bool keep = usable(u, v);
      band.data[i] = keep ? u : 0.0f;
      band.data[count + i] = keep ? v : 0.0f;
    }
    COpticFlow::flowToImage(band, bandColours, factorFor(maxFlow));
    for (int c = 0; c < 3; ++c)
      std::copy(bandColours.data + c * count, bandColours.data + (c + 1) * count, coded.data + c * plane + offset);
  }
  if (!legend) return coded;

  const int side = std::max(32, flow.ySize);
  const int width = flow.xSize + side, height = std::max(flow.ySize, side);
  CTensor<float> picture(width, height, 3, 255.0f);
  const size_t outPlane = picture.planeSize();
  for (int c = 0; c < 3; ++c) {
    for (int y = 0; y < flow.ySize; ++y) {
      std::copy(coded.data + c * plane + static_cast<size_t>(y) * flow.xSize,
                coded.data + c * plane + static_cast<size_t>(y + 1) * flow.xSize,
                picture.data + c * outPlane + static_cast<size_t>(y) * width);
    }
  }
  // The wheel: the panel's inscribed circle shows vectors up to maxFlow.
  const float radius = 0.5f * side - 1.0f, centre = 0.5f * (side - 1);
  CTensor<float> wheel(side, side, 2, 0.0f);
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      wheel(x, y, 0) = (x - centre) / radius * maxFlow;
      wheel(x, y, 1) = (y - centre) / radius * maxFlow;
    }
  }
  CTensor<float> wheelColours;
  COpticFlow::flowToImage(wheel, wheelColours, factorFor(maxFlow));
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x) {
      const float dx = x - centre, dy = y - centre;
      if (dx * dx + dy * dy > radius * radius) continue;
      for (int c = 0; c < 3; ++c) picture(flow.xSize + x, y, c) = wheelColours(x, y, c);
    }
  }
  return picture;
}

CTensor<float> errorPicture(const CTensor<float>& endPointError, float maxError) {
  const int width = endPointError.xSize, height = endPointError.ySize;
  CTensor<float> picture(width, height, 3, 0.0f);
  const size_t plane = picture.planeSize();
  if (!(maxError > 0.0f)) maxError = 1.0f;
  for (size_t i = 0; i < plane; ++i) {
    const float e = endPointError.data[i];
    float r, g, b;
    if (std::isnan(e)) {
      r = 0.0f, g = 0.0f, b = 96.0f;
    } else {
      // Three equal steps: black to red, red to yellow, yellow to white.
      const float t = std::min(1.0f, e / maxError) * 3.0f;
      r = std::min(1.0f, t);
      g = std::min(1.0f, std::max(0.0f, t - 1.0f));
      b = std::max(0.0f, t - 2.0f);
      r = std::round(r * 255.0f), g = std::round(g * 255.0f), b = std::round(b * 255.0f);
    }
    picture.data[i] = r;
    picture.data[plane + i] = g;
    picture.data[2 * plane + i] = b;
  }
  return picture;
}
