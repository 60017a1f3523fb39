// vemo::Engine: a backend kept for many pairs, behind the public API.
#include "vemo/engine.hpp"

#include <omp.h>

#include <mutex>
#include <string>

#include "api/failures.h"
#include "api/frames.h"
#include "backends/backend.h"
#include "backends/backend_factory.h"
#include "backends/cuda/device_probe.h"
#include "common/stage_lines.h"
#include "common/timer.h"
#include "driver/pair_flow.h"
#include "driver/presets.h"
#include "driver/run_flow.h"
#include "matching/hog_match_driver.h"
#include "variational/solver_timers.h"
#include "variational/run_memory.h"
#include "vemo/errors.hpp"

namespace vemo {

namespace {

// CUDA Engines take turns: the backend's masks, textures and default stream
// belong to the device, not to one Engine.
std::mutex& cudaTurns() {
  static std::mutex turns;
  return turns;
}

// For one computation on the calling thread: its OpenMP thread count (0
// keeps the current one) and no stage lines on standard output.
class ComputationScope {
 public:
  explicit ComputationScope(int threads)
      : savedThreads_(omp_get_max_threads()), setThreads_(threads > 0), savedLines_(stageLinesOn()) {
    if (setThreads_) omp_set_num_threads(threads);
    setStageLines(false);
  }
  ~ComputationScope() {
    if (setThreads_) omp_set_num_threads(savedThreads_);
    setStageLines(savedLines_);
  }
  ComputationScope(const ComputationScope&) = delete;
  ComputationScope& operator=(const ComputationScope&) = delete;

 private:
  int savedThreads_;
  bool setThreads_;
  bool savedLines_;
};

// The preset's inner choices with the seven values of `p` over them.
FlowParameters flowParametersOf(const Parameters& p) {
  FlowParameters f = findPreset(p.preset).parameters;
  f.alpha = p.alpha;
  f.beta = p.beta;
  f.gamma = p.gamma;
  f.eta = p.eta;
  f.fixedPointIterations = p.fixed_point_iters;
  f.solverIterations = p.solver_iters;
  return f;
}

void checkSameSize(const ImageView& a, const ImageView& b) {
  if (a.width != b.width || a.height != b.height)
    throw InvalidInput("frames differ in size: frame1 is " + std::to_string(a.width) + " x " +
                       std::to_string(a.height) + ", frame2 is " + std::to_string(b.width) + " x " +
                       std::to_string(b.height));
}

}  // namespace

struct Engine::Impl {
  std::unique_ptr<Backend> backend;
  std::string device;
  int threads = 0;
  bool usable = true;
  Timings timings;
  std::mutex calls;  // calls on one Engine take turns

  bool onCuda() const { return device != "cpu"; }

  void requireUsable() const {
    if (!usable)
      throw DeviceError("this Engine's device (" + device +
                        ") failed in an earlier call and cannot be used again; make a new Engine");
  }

  // Everything about the pair that can be refused before the frames are
  // converted: views, sizes, parameters, memory.
  void checkPair(const ImageView& a, const ImageView& b, const Parameters& parameters) {
    requireUsable();
    api::checkView(a, "frame1", 2);
    api::checkView(b, "frame2", 2);
    checkSameSize(a, b);
    parameters.validate();
    const int pitch = backend->pitchFor(a.width);
    if (!planeOffsetsFit(a.height, pitch))
      throw InvalidInput("a " + std::to_string(a.width) + " x " + std::to_string(a.height) +
                         " frame is too large for the solver's 32-bit plane offsets");
    api::translated(api::FailureKind::Compute, [&] { refuseIfTooLarge(*backend, a.height, a.width, pitch, 3); });
  }

  // Runs `work` on this Engine's backend with the scopes a computation
  // needs; a device failure makes the Engine unusable.
  template <class Work>
  auto compute(Work&& work) -> decltype(work()) {
    std::unique_lock<std::mutex> turn(cudaTurns(), std::defer_lock);
    if (onCuda()) turn.lock();
    ComputationScope scope(threads);
    try {
      return api::translated(api::FailureKind::Compute, [&] {
        backend->bindToCallingThread();
        // The stage timers are the calling thread's own.
        resetStageTimers();
        auto result = work();
        timings = Timings{timer_filter,     timer_memcpy1, timer_HOG,         timer_hogc, timer_hogmatch, timer_var,
                          timer_makematrix, timer_solver,  timer_interp_warp, timer_down, timer_total};
        return result;
      });
    } catch (const DeviceError&) {
      usable = false;
      throw;
    }
  }
};

Engine::Engine(const std::string& device, int threads) : impl_(std::make_unique<Impl>()) {
  DeviceRequest request;
  if (!parseDeviceName(device, request))
    throw InvalidInput("device must be " + std::string(kDeviceNames) + ", not \"" + device + "\"");
  if (threads < 0 || threads > 1024)
    throw InvalidInput("threads must be from 0 (all cores) to 1024, not " + std::to_string(threads));
  const DeviceRequest decided = effectiveRequest(request);
  if (request.backend == BackendRequest::Cuda && !cudaDeviceUsable(request.cudaDevice)) {
    const CudaProbe& probe = probeCudaDevice(request.cudaDevice);
    throw DeviceError("cannot use " + device + ": " +
                      (probe.present ? probe.reason : std::string("no usable CUDA GPU was found")));
  }
  impl_->threads = threads;
  impl_->backend = api::translated(api::FailureKind::Compute, [&] { return makeBackend(request); });
  impl_->device = std::string(impl_->backend->name()) == "cuda" ? "cuda:" + std::to_string(decided.cudaDevice) : "cpu";
}

Engine::~Engine() = default;
Engine::Engine(Engine&&) noexcept = default;
Engine& Engine::operator=(Engine&&) noexcept = default;

std::string Engine::device() const { return impl_->device; }
int Engine::threads() const { return impl_->threads; }
bool Engine::usable() const { return impl_->usable; }
Timings Engine::last_timings() const { return impl_->timings; }

Flow Engine::flow(const ImageView& frame1, const ImageView& frame2, const Parameters& parameters) {
  std::lock_guard<std::mutex> hold(impl_->calls);
  impl_->checkPair(frame1, frame2, parameters);
  const CTensor<float> a = api::frameFromView(frame1, "frame1"), b = api::frameFromView(frame2, "frame2");
  const CTensor<float> flow = impl_->compute(
      [&] { return flowBetween(*impl_->backend, a, b, parameters.sigma, flowParametersOf(parameters)); });
  return api::flowFromTensor(flow);
}

FlowPair Engine::flow_pair(const ImageView& frame1, const ImageView& frame2, const Parameters& parameters) {
  std::lock_guard<std::mutex> hold(impl_->calls);
  impl_->checkPair(frame1, frame2, parameters);
  const CTensor<float> a = api::frameFromView(frame1, "frame1"), b = api::frameFromView(frame2, "frame2");
  const PairFlow flows = impl_->compute([&] {
    return computePairFlow(*impl_->backend, a, b, parameters.sigma, flowParametersOf(parameters), true, true);
  });
  FlowPair pair;
  pair.forward = api::flowFromTensor(flows.forward);
  pair.backward = api::flowFromTensor(flows.backward);
  pair.occluded.resize(flows.occlusions.planeSize());
  for (std::size_t i = 0; i < pair.occluded.size(); ++i) pair.occluded[i] = flows.occlusions.data[i] != 0.0f ? 1 : 0;
  return pair;
}

int cuda_devices() {
  const CudaProbe& probe = probeCudaDevice();
  return probe.usable ? probe.devices : 0;
}

}  // namespace vemo
