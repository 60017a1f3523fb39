#include "matching/hog_match_driver.h"

#include <cmath>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "common/cancel.h"
#include "common/diagnostics.h"
#include "common/stage_lines.h"
#include "common/timer.h"
#include "backends/backend.h"
#include "backends/matching_stages.h"
#include "pixel/hog.h"
#include "pixel/hog_match.h"

thread_local timeval start_hogc, finish_hogc, start_hogmatch, finish_hogmatch;
thread_local double timer_hogc = 0.0;
thread_local double timer_hogmatch = 0.0;

namespace vemo {

int matchGridCount(int size, int step) {
  const int span = size - 2 * kGridMargin;
  return span > 0 && step > 0 ? (span + step - 1) / step : 0;
}

namespace {

void printTimes() {
  stageLine("HOG creation = %f msec\n", timer_hogc);
  stageLine("HOG match = %f msec\n", timer_hogmatch);
}

// The frames the matching works on: the caller's, or copies reduced by the
// integer `scale` (area averages), which the match planes of the full frame
// receive with their positions and displacements scaled back.
struct MatchFrames {
  const float* image1;
  const float* image2;
  int height, width, pitch;
  Buffer reduced1, reduced2;
};

MatchFrames matchFrames(Backend& backend, const float* Image1, const float* Image2, int height, int width, int pitch,
                        int nChannels, int scale) {
  MatchFrames f{Image1, Image2, height, width, pitch, Buffer(), Buffer()};
  if (scale == 1) return f;
  f.height = (height + scale - 1) / scale;
  f.width = (width + scale - 1) / scale;
  f.pitch = backend.pitchFor(f.width);
  const std::size_t plane = (std::size_t)f.pitch * f.height;
  const std::size_t fullPlane = (std::size_t)pitch * height;
  f.reduced1 = backend.allocate(nChannels * plane);
  f.reduced2 = backend.allocate(nChannels * plane);
  // Padding columns are read by the row loops of some stages.
  backend.clear(f.reduced1.data(), f.reduced1.floats());
  backend.clear(f.reduced2.data(), f.reduced2.floats());
  backend.downsampleChannels(Image1, fullPlane, f.reduced1.data(), plane, nChannels, height, width, pitch, f.height,
                             f.width, f.pitch);
  backend.downsampleChannels(Image2, fullPlane, f.reduced2.data(), plane, nChannels, height, width, pitch, f.height,
                             f.width, f.pitch);
  f.image1 = f.reduced1.data();
  f.image2 = f.reduced2.data();
  return f;
}

[[noreturn]] void refuse(const std::string& message) {
  vemo::reportf(stderr, "%s\n", message.c_str());
  throw BackendError(message);
}

// Points searched per call: each point is matched alone, so slices give the
// same result as one call, and a cancelled computation stops between them
// (on one CPU core a slice takes a fraction of a second).
constexpr int kMatchSlice = 2048;

void matchInSlices(MatchingStages& stages, const HogMatchInputs& inputs, const int* x, const int* y, int n,
                   const HogMatchResults& out) {
  for (int first = 0; first < n; first += kMatchSlice) {
    cancellationPoint();
    const int count = n - first < kMatchSlice ? n - first : kMatchSlice;
    stages.hogMatch(inputs, x + first, y + first, count,
                    HogMatchResults{out.match_x + first, out.match_y + first, out.match_dist + first,
                                    out.match_dist2 + first});
  }
}

}  // namespace

void gCreateAndMatchHOG(Backend& backend, MatchingStages& stages, const float* Image1, const float* Image2,
                        float* u, float* v, float* Confidence, int fullHeight, int fullWidth, int fullPitch,
                        int nChannels, const MatchSettings& settings) {
  if (settings.gridStep < 1 || settings.radius < 1 || settings.radius > kMatchRadius || settings.downscale < 1 ||
      settings.downscale > kMaxMatchDownscale)
    refuse("gCreateAndMatchHOG: grid step " + std::to_string(settings.gridStep) + ", search radius " +
           std::to_string(settings.radius) + " and reduction " + std::to_string(settings.downscale) +
           ": the step must be at least 1, the radius from 1 to " + std::to_string(kMatchRadius) +
           " and the reduction from 1 to " + std::to_string(kMaxMatchDownscale));
  if (fullHeight < 1 || fullWidth < 1 || fullPitch < fullWidth)
    refuse("gCreateAndMatchHOG: invalid frame size " + std::to_string(fullWidth) + "x" +
           std::to_string(fullHeight) + " with pitch " + std::to_string(fullPitch));
  const std::size_t fullPlane = (std::size_t)fullPitch * fullHeight;
  backend.clear(Confidence, fullPlane);
  backend.clear(u, fullPlane);
  backend.clear(v, fullPlane);

  const int scale = settings.downscale;
  const MatchFrames frames = matchFrames(backend, Image1, Image2, fullHeight, fullWidth, fullPitch, nChannels, scale);
  Image1 = frames.image1;
  Image2 = frames.image2;
  const int height = frames.height, width = frames.width, pitch = frames.pitch;
  const int step = settings.gridStep;
  const int nx = matchGridCount(width, step);
  const int ny = matchGridCount(height, step);
  stageLine("%d %d %d %d\n", nx, ny, width, height);
  const std::size_t plane = (std::size_t)pitch * height;

  const int n = nx * ny;
  if (n == 0 || nChannels < 3) {
    if (nChannels < 3)
      vemo::reportf(stderr, "gCreateAndMatchHOG: frames with %d channel(s) have no colour to compare; no matches\n",
                    nChannels);
    printTimes();
    return;
  }

  // Grid points, rows outer.
  std::vector<int> gridX, gridY;
  gridX.reserve(n);
  gridY.reserve(n);
  for (int y = kGridMargin; y < height - kGridMargin; y += step)
    for (int x = kGridMargin; x < width - kGridMargin; x += step) {
      gridX.push_back(x);
      gridY.push_back(y);
    }
  if ((int)gridX.size() != n)  // the count formula and the loops describe the same grid
    refuse("gCreateAndMatchHOG: grid of " + std::to_string(gridX.size()) + " points where " + std::to_string(n) +
           " were counted");

  Buffer hog1 = backend.allocate(plane * kHogBins);
  Buffer hog2 = backend.allocate(plane * kHogBins);
  Buffer conf = backend.allocate(plane);
  Buffer energy1 = backend.allocate(plane);
  Buffer energy2 = backend.allocate(plane);
  IntBuffer mx = stages.allocateInts(n), my = stages.allocateInts(n);
  IntBuffer forwardX = stages.allocateInts(n), forwardY = stages.allocateInts(n);
  IntBuffer backwardX = stages.allocateInts(n), backwardY = stages.allocateInts(n);
  Buffer forwardDist = backend.allocate(n), forwardDist2 = backend.allocate(n);
  Buffer backwardDist = backend.allocate(n), backwardDist2 = backend.allocate(n);
  Buffer average = backend.allocate(1);  // mean cornerness, where the search reads it
  stages.clearInts(forwardX.data(), n);
  stages.clearInts(forwardY.data(), n);
  stages.clearInts(backwardX.data(), n);
  stages.clearInts(backwardY.data(), n);
  // Skipped points keep "no candidate" as their distances.
  for (Buffer* dist : {&forwardDist, &forwardDist2, &backwardDist, &backwardDist2})
    backend.setValue(dist->data(), 1, n, n, kNoMatch);
  stages.uploadInts(mx.data(), gridX.data(), n);
  stages.uploadInts(my.data(), gridY.data(), n);

  // Device time on a GPU, settled once before the totals are printed.
  backend.openStretch(start_hogc);
  backend.clear(hog1.data(), plane * kHogBins);
  backend.clear(hog2.data(), plane * kHogBins);
  stages.computeHOG(Image1, hog1.data(), nChannels, kHogBins, height, width, pitch);
  stages.computeHOG(Image2, hog2.data(), nChannels, kHogBins, height, width, pitch);
  backend.closeStretch(start_hogc, finish_hogc, timer_hogc);

  backend.openStretch(start_hogmatch);
  stages.computeConfidence(Image1, conf.data(), height, width, pitch, nChannels);
  stages.computeEnergy(hog1.data(), energy1.data(), height, width, pitch, kHogBins);
  stages.computeEnergy(hog2.data(), energy2.data(), height, width, pitch, kHogBins);
  stages.average2D(conf.data(), height, width, pitch, average.data());

  // Forward: grid points of frame 1, searched in frame 2, weak points skipped.
  const HogMatchInputs forward{Image1,         Image2,         hog1.data(),    hog2.data(), conf.data(), 1,
                               energy1.data(), energy2.data(), average.data(), height,      width,       pitch,
                               settings.radius};
  matchInSlices(stages, forward, mx.data(), my.data(), n,
                HogMatchResults{forwardX.data(), forwardY.data(), forwardDist.data(), forwardDist2.data()});
  // Backward: each forward result searched in frame 1. Points without a
  // forward match sit at (0, 0) and are skipped.
  const HogMatchInputs backward{Image2,         Image1,         hog2.data(),    hog1.data(), conf.data(), 0,
                                energy2.data(), energy1.data(), average.data(), height,      width,       pitch,
                                settings.radius};
  matchInSlices(stages, backward, forwardX.data(), forwardY.data(), n,
                HogMatchResults{backwardX.data(), backwardY.data(), backwardDist.data(), backwardDist2.data()});
  stages.consistencyCheck(mx.data(), my.data(), forwardX.data(), forwardY.data(), backwardX.data(),
                          backwardY.data(), forwardDist.data(), forwardDist2.data(), n, Confidence, u, v, fullHeight,
                          fullWidth, fullPitch, scale);
  backend.closeStretch(start_hogmatch, finish_hogmatch, timer_hogmatch);

  backend.settleStretches();
  printTimes();
}

void gCreateAndMatchHOG(Backend& backend, const float* Image1, const float* Image2, float* u, float* v,
                        float* Confidence, int height, int width, int pitch, int nChannels,
                        const MatchSettings& settings) {
  std::unique_ptr<MatchingStages> stages = makeMatchingStages(backend);
  gCreateAndMatchHOG(backend, *stages, Image1, Image2, u, v, Confidence, height, width, pitch, nChannels, settings);
}

}  // namespace vemo
