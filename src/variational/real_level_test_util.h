// Test helper: one pyramid level of a real frame pair beside the repository,
// in backend memory, with the linear system of its first fixed-point step
// (zero flow, zero increment, no match term). Absent data: load() is false.
#pragma once

#include <cstddef>
#include <fstream>
#include <string>

#include "backends/backend.h"
#include "variational/diffusivity.h"
#include "variational/motion_tensors.h"
#include "variational/scratch.h"
#include "image/tensor.h"
#include "support/solver_fixtures.h"

namespace vemo::testing {

struct RealLevel {
  static constexpr int kChannels = 3;

  RealLevel(Backend& b, int height, int width)
      : backend(b), height(height), width(width), pitch(b.pitchFor(width)),
        frame1(b, height, width, kChannels), frame2(b, height, width, kChannels), conf(b, height, width),
        zero(b, height, width), u(b, height, width), v(b, height, width),
        scratch(b, static_cast<std::size_t>(pitch) * height) {}

  std::size_t plane() const { return static_cast<std::size_t>(pitch) * height; }

  // Frames of `pair` (a folder of the data set) averaged down to the level.
  bool load(const std::string& pair) {
    const std::string dir = std::string(VEMO_DATA_DIR) + "/" + pair + "/";
    if (!std::ifstream(dir + "frame1.ppm").good() || !std::ifstream(dir + "frame2.ppm").good()) return false;
    CTensor<float> a, c;
    a.readFromPPM((dir + "frame1.ppm").c_str());
    c.readFromPPM((dir + "frame2.ppm").c_str());
    const int fw = a.xSize, fh = a.ySize, fp = backend.pitchFor(fw);
    Buffer full = backend.allocate(static_cast<std::size_t>(fp) * fh);
    backend.clear(full.data(), full.floats());
    for (int k = 0; k < kChannels; ++k) {
      backend.upload(full.data(), fp, a.data + static_cast<std::size_t>(k) * fw * fh, fw, fh);
      backend.downsample(full.data(), fh, fw, fp, frame1.data(k), height, width, pitch, nullptr);
      backend.upload(full.data(), fp, c.data + static_cast<std::size_t>(k) * fw * fh, fw, fh);
      backend.downsample(full.data(), fh, fw, fp, frame2.data(k), height, width, pitch, nullptr);
    }
    backend.setValue(conf.data(), height, width, pitch, 1.0f);
    return true;
  }

  // The system of the first fixed-point step at the current (u, v), with
  // frame 2 taken as already warped: fp().devMatrix and fp().b.
  void assemble(float alpha, float gamma) {
    const FPtmp& fp = scratch.fp();
    backend.clear(fp.du, 2 * plane());
    backend.clear(fp.ST, 6 * plane());
    backend.clear(fp.ST2, 6 * plane());
    MakeST(backend, frame1.data(), frame2.data(), fp.ST, fp.ST2, conf.data(), fp.derivatives, height, width, pitch,
           kChannels);
    gDiffusivity(backend, u.data(), v.data(), fp.du, fp.du + plane(), fp.diffX, fp.diffY, height, width, pitch,
                 fp.flowSum, fp.flowDerivative);
    backend.assembleSystem(fp, u.data(), v.data(), zero.data(), zero.data(), zero.data(), height, width, pitch,
                           alpha, 300.0f, gamma);
  }

  Backend& backend;
  int height, width, pitch;
  TestImage frame1, frame2, conf, zero, u, v;
  SolverScratch scratch;
};

}  // namespace vemo::testing
