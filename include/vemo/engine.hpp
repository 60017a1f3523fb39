// The flow of frame pairs: an Engine holds one backend (the CPU or a CUDA
// GPU) and the buffers it keeps between pairs of one size.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vemo/flow.hpp"
#include "vemo/image.hpp"
#include "vemo/parameters.hpp"

namespace vemo {

// The flows of one pair, as `vemo-flow --backward --occlusions` writes them.
struct FlowPair {
  Flow forward;                        // frame 1 -> frame 2
  Flow backward;                       // frame 2 -> frame 1
  std::vector<std::uint8_t> occluded;  // width x height, row by row: 1 where forward and backward disagree
};

// Wall-clock milliseconds of the stages of an Engine's last call (for
// flow_pair, both flows together). Indented names are parts of the stage
// above them.
struct Timings {
  double presmoothing = 0.0;  // Gaussian presmoothing of the frames on the host
  double transfers = 0.0;     // frames to the backend's memory and the flow back
  double matching = 0.0;      // descriptor matching, of which:
  double descriptors = 0.0;   //   the HOG descriptors of both frames
  double search = 0.0;        //   cornerness, the forward and backward search, the consistency check
  double variational = 0.0;  // the coarse-to-fine solver, of which:
  double fixed_point = 0.0;   //   the fixed-point iterations (linear solves included)
  double solves = 0.0;        //     the linear solves
  double warping = 0.0;       //   warping frame 2 and carrying the flow to the next level
  double downsampling = 0.0;  //   the frames and match planes of each level
  double total = 0.0;         // the whole computation
};

// Threads: one Engine per thread. Engines on different threads run at the
// same time (CPU Engines in parallel; CUDA Engines on one device take
// turns) and give the same bits as when run one after another. Calls on
// one Engine from several threads take turns. Results never depend on the
// thread count.
class Engine {
 public:
  // device: "auto" (a CUDA GPU of compute capability 7.5 or newer where one
  // is usable, else the CPU; the environment variable VEMO_DEVICE may name
  // one instead), "cpu", "cuda" (device 0) or "cuda:N". threads: the CPU
  // backend's threads, 0 for all cores (or OMP_NUM_THREADS).
  // InvalidInput for an unknown device name or threads outside 0..1024;
  // DeviceError when "cuda" or "cuda:N" cannot be used (the message says
  // why).
  explicit Engine(const std::string& device = "auto", int threads = 0);
  ~Engine();
  Engine(Engine&&) noexcept;
  Engine& operator=(Engine&&) noexcept;
  Engine(const Engine&) = delete;
  Engine& operator=(const Engine&) = delete;

  // "cpu" or "cuda:N": the backend that runs this Engine's pairs.
  std::string device() const;
  int threads() const;
  // False once a device failure has made this Engine unusable.
  bool usable() const;
  // The stage times of the last flow or flow_pair call.
  Timings last_timings() const;

  // The flow from frame1 to frame2. Both frames must have the same width and
  // height (at least 2 x 2); channels and pixel types may differ. Checks
  // everything (views, parameters, memory) before any work: InvalidInput,
  // OutOfMemory; DeviceError when the GPU fails.
  Flow flow(const ImageView& frame1, const ImageView& frame2, const Parameters& parameters = Parameters());

  // The forward flow, the backward flow (computed from the frames as given)
  // and the occlusion mask of forward-backward disagreement.
  FlowPair flow_pair(const ImageView& frame1, const ImageView& frame2, const Parameters& parameters = Parameters());

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// The number of CUDA devices this build can use here (0 without a usable
// GPU, or in a build without the CUDA backend).
int cuda_devices();

}  // namespace vemo
