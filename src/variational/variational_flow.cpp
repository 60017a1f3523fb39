#include "variational/variational_flow.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "common/cancel.h"
#include "common/stage_lines.h"
#include "variational/nonlinear_iteration.h"
#include "variational/pyramid.h"
#include "variational/scratch.h"
#include "variational/solver_timers.h"

namespace vemo {

namespace {

[[noreturn]] void refuse(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  throw std::invalid_argument(message);
}

void checkArguments(const Backend& backend, int height, int width, int pitch, int nChan) {
  if (height < 1 || width < 1)
    refuse("gVariationalFlowVemo: invalid frame size " + std::to_string(width) + "x" + std::to_string(height));
  if (pitch < width)
    refuse("gVariationalFlowVemo: pitch " + std::to_string(pitch) + " is smaller than the width " +
           std::to_string(width));
  // Full-size levels copy the frames plane by plane as contiguous blocks.
  if (pitch != backend.pitchFor(width))
    refuse("gVariationalFlowVemo: pitch " + std::to_string(pitch) + " is not the backend's pitch " +
           std::to_string(backend.pitchFor(width)) + " for width " + std::to_string(width));
  if (nChan < 1) refuse("gVariationalFlowVemo: invalid channel count " + std::to_string(nChan));
}

}  // namespace

FlowPlanes gVariationalFlowVemo(Backend& backend, const float* frame1, const float* frame2, const float* geoU,
                                const float* geoV, const float* geoConf, int hypos, int height, int width,
                                int pitch, int nChan, float sigma, float alpha, float beta, float gamma, float eta,
                                int fixedPointIterations, int solverIterations,
                                const VariationalSettings& settings) {
  checkArguments(backend, height, width, pitch, nChan);
  const std::size_t fullPlane = static_cast<std::size_t>(pitch) * height;

  // Level copies of the match field.
  // Stage stretches are timed by the backend (device time on a GPU) and
  // added to their totals once, before the totals are printed: nothing in
  // the level loop waits for the device.
  backend.openStretch(start_memcpy);
  Buffer levelGeoU = backend.allocate(fullPlane);
  Buffer levelGeoV = backend.allocate(fullPlane);
  Buffer levelGeoConf = backend.allocate(fullPlane);
  backend.closeStretch(start_memcpy, finish_memcpy, timer_memcpy);

  const int nscales = pyramidScaleCount(height, width, eta);
  stageLine("# scales = %d \n", nscales);
  if (sigma > 0.0f) stageLine("Filters not yet implemented\n");

  SolverScratch scratch(backend, fullPlane);

  // The level images, allocated once at full size and reused by every level
  // (a level uses the first pitch * height floats of each plane), so that no
  // level allocates. The flow alternates between two pairs of planes: the
  // level's flow is enlarged from the other pair.
  Buffer level1 = backend.allocate(nChan * fullPlane);
  Buffer level2 = backend.allocate(nChan * fullPlane);
  Buffer warpedStore = backend.allocate(nChan * fullPlane);
  Buffer conf = backend.allocate(fullPlane);
  Buffer flowU[2] = {backend.allocate(fullPlane), backend.allocate(fullPlane)};
  Buffer flowV[2] = {backend.allocate(fullPlane), backend.allocate(fullPlane)};

  // The flow of the last processed level (pair `current`) and its geometry.
  int current = 0;
  bool haveFlow = false;
  int flowHeight = 0, flowWidth = 0, flowPitch = 0;
  int iterations = solverIterations;
  int outerIterations = fixedPointIterations;
  // Levels finer than `finest` are not solved: the flow of level `finest`
  // is enlarged to full size in one step.
  const int finest = settings.finestLevel < nscales ? settings.finestLevel : nscales;
  const auto enlargeFlow = [&](int hs, int ws, int ps, float enlarge) {
    const int next = 1 - current;
    backend.interpolate(flowU[next].data(), hs, ws, ps, flowU[current].data(), flowHeight, flowWidth, flowPitch,
                        enlarge);
    backend.scale(flowU[next].data(), hs, ws, ps, enlarge);
    backend.interpolate(flowV[next].data(), hs, ws, ps, flowV[current].data(), flowHeight, flowWidth, flowPitch,
                        enlarge);
    backend.scale(flowV[next].data(), hs, ws, ps, enlarge);
    current = next;
  };

  for (int s = nscales; s >= -settings.extraPasses; --s) {
    cancellationPoint();
    const int e = s >= 0 ? s : 0;
    if (s >= 0 && s < finest) continue;
    if (pyramidLevelIsDegenerate(s, height, width, eta)) {
      stageLine("Increase eta or increase minimum dimension\n");
      continue;
    }
    const LevelSize size = pyramidLevelSize(s, height, width, eta);
    const int hs = size.height, ws = size.width;
    const int ps = backend.pitchFor(ws);
    const std::size_t plane = static_cast<std::size_t>(ps) * hs;

    // Frames and match field of the level, always from the full-size inputs
    // so that rounding does not accumulate over the levels.
    backend.openStretch(start_down);
    if (s <= 0) {
      backend.copy(level1.data(), frame1, nChan * plane);
      backend.copy(level2.data(), frame2, nChan * plane);
      backend.copy(levelGeoU.data(), geoU, plane);
      backend.copy(levelGeoV.data(), geoV, plane);
      backend.copy(levelGeoConf.data(), geoConf, plane);
    } else {
      backend.downsampleChannels(frame1, fullPlane, level1.data(), plane, nChan, height, width, pitch, hs, ws, ps);
      backend.downsampleChannels(frame2, fullPlane, level2.data(), plane, nChan, height, width, pitch, hs, ws, ps);
      // Match displacements shrink with the image; the weight plane is
      // averaged with weights equal to itself.
      const float shrink = powf(eta, static_cast<float>(s));
      const float* const field[3] = {geoU, geoV, geoConf};
      float* const levelField[3] = {levelGeoU.data(), levelGeoV.data(), levelGeoConf.data()};
      backend.downsampleMatches(field, levelField, height, width, pitch, hs, ws, ps);
      backend.scale(levelGeoU.data(), hs, ws, ps, shrink);
      backend.scale(levelGeoV.data(), hs, ws, ps, shrink);
    }
    backend.closeStretch(start_down, finish_down, timer_down);

    // Flow carried into the level: zero at the coarsest level, enlarged from
    // the previous level above full size, kept during the full-size passes.
    backend.openStretch(start_interp_warp);
    const bool coarsest = static_cast<float>(e) == static_cast<float>(nscales);
    if (s >= 0 || !haveFlow) {
      if (coarsest || !haveFlow) {
        // A flow that was never computed (every coarser level skipped as
        // degenerate) starts from zero as well.
        current = 1 - current;
        backend.clear(flowU[current].data(), plane);
        backend.clear(flowV[current].data(), plane);
      } else if (nscales > e) {
        enlargeFlow(hs, ws, ps, 1.0f / eta);
      } else {
        current = 1 - current;
      }
      haveFlow = true;
    } else if (flowHeight != hs || flowWidth != ws) {
      // The first full-size pass after the finer levels were left out.
      enlargeFlow(hs, ws, ps, 1.0f / powf(eta, static_cast<float>(finest)));
    } else if (coarsest) {
      backend.clear(flowU[current].data(), plane);
      backend.clear(flowV[current].data(), plane);
    }
    float* u = flowU[current].data();
    float* v = flowV[current].data();

    const float* warped = level2.data();
    if (!coarsest) {
      backend.warpMotion(warpedStore.data(), u, v, level2.data(), level1.data(), nChan, conf.data(), hs, ws, ps);
      warped = warpedStore.data();
    } else {
      backend.setValue(conf.data(), hs, ws, ps, 1.0f);
    }
    if (s == -1) {
      iterations = 2 * solverIterations;
      if (settings.extraFixedPointIterations >= 0) outerIterations = settings.extraFixedPointIterations;
    }
    if (s < 0) backend.clear(levelGeoConf.data(), plane);
    backend.closeStretch(start_interp_warp, finish_interp_warp, timer_interp_warp);

    gNonLinearIteration(backend, level1.data(), warped, conf.data(), levelGeoU.data(), levelGeoV.data(),
                        levelGeoConf.data(), hypos, u, v, hs, ws, ps, nChan, alpha, beta,
                        gamma * powf(eta, static_cast<float>(e)), outerIterations, iterations, scratch.cg(),
                        scratch.fp(), settings.smoothnessEpsilon);
    flowHeight = hs;
    flowWidth = ws;
    flowPitch = ps;
  }

  if (!haveFlow) {
    // Every pass was skipped as degenerate: nothing moved.
    flowPitch = backend.pitchFor(width);
    backend.clear(flowU[current].data(), fullPlane);
    backend.clear(flowV[current].data(), fullPlane);
  } else if (flowHeight != height || flowWidth != width) {
    // No full-size pass followed the finest level solved.
    const int fullPitch = backend.pitchFor(width);
    enlargeFlow(height, width, fullPitch, 1.0f / powf(eta, static_cast<float>(finest)));
    flowPitch = fullPitch;
  }

  backend.settleStretches();
  stageLine("Solver time = %f ms\n", timer_solver);
  stageLine("MakeMatrix time = %f ms\n", timer_makematrix);
  stageLine("Interp time = %f ms\n", timer_interp_warp);
  stageLine("downsampling time = %f ms\n", timer_down);

  FlowPlanes result;
  result.u = std::move(flowU[current]);
  result.v = std::move(flowV[current]);
  result.pitch = flowPitch;
  return result;
}

}  // namespace vemo
