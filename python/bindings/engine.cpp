#include "engine.h"

#include <omp.h>

#include <mutex>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>

#include "arrays.h"
#include "backends/backend.h"
#include "backends/backend_factory.h"
#include "backends/cuda/device_probe.h"
#include "variational/run_memory.h"

namespace vemopy {

namespace {

// One computation at a time in the process: the pipeline's timers, the
// backend factory's request and the CUDA device are shared by all engines.
std::mutex& computeLock() {
  static std::mutex lock;
  return lock;
}

// Sets the calling thread's OpenMP thread count for one computation.
class ThreadCount {
 public:
  explicit ThreadCount(int threads) : saved_(omp_get_max_threads()), active_(threads > 0) {
    if (active_) omp_set_num_threads(threads);
  }
  ~ThreadCount() {
    if (active_) omp_set_num_threads(saved_);
  }

 private:
  int saved_;
  bool active_;
};

// The bounds are compared as floats, the precision the parameters arrive in
// (eta = 0.99 becomes 0.99f, slightly above the double 0.99).
void checkRange(const char* name, double value, float low, float high, bool lowOpen, const char* range) {
  if (!(value >= low && value <= high) || (lowOpen && value == low))
    throw nb::value_error((std::string(name) + " must be a number " + range + ", not " + std::to_string(value)).c_str());
}

vemo::BackendRequest requestFor(const std::string& device) {
  if (device == "auto") return vemo::BackendRequest::Auto;
  if (device == "cpu") return vemo::BackendRequest::Cpu;
  if (device == "cuda") return vemo::BackendRequest::Cuda;
  throw nb::value_error(("device must be \"auto\", \"cpu\" or \"cuda\", not \"" + device + "\"").c_str());
}

}  // namespace

void checkSettings(const FlowSettings& s) {
  const FlowParameters& p = s.parameters;
  checkRange("sigma", s.sigma, 0.0f, 100.0f, false, "from 0 to 100");
  checkRange("alpha", p.alpha, 0.0f, 1e6f, false, "from 0 to 1e6");
  checkRange("beta", p.beta, 0.0f, 1e6f, false, "from 0 to 1e6");
  checkRange("gamma", p.gamma, 0.0f, 1e6f, false, "from 0 to 1e6");
  checkRange("eta", p.eta, 0.0f, 0.99f, true, "above 0 and at most 0.99");
  checkRange("fixed_point_iters", p.fixedPointIterations, 0.0f, 1000.0f, false, "from 0 to 1000");
  checkRange("solver_iters", p.solverIterations, 0.0f, 10000.0f, false, "from 0 to 10000");
}

FlowEngine::FlowEngine(const std::string& device, int threads) : threads_(threads) {
  const vemo::BackendRequest request = requestFor(device);
  if (threads < 0 || threads > 1024)
    throw nb::value_error(("threads must be from 1 to 1024, not " + std::to_string(threads)).c_str());
  nb::gil_scoped_release released;
  std::lock_guard<std::mutex> hold(computeLock());
  vemo::requestBackend(request);
  backend_name_ = vemo::chosenBackendName();
  if (request == vemo::BackendRequest::Cuda && backend_name_ != "cuda") {
    const vemo::CudaProbe& probe = vemo::probeCudaDevice();
    throw vemo::BackendError(probe.present ? probe.reason : "no usable CUDA GPU was found");
  }
  backend_ = vemo::makeBackend();
  backend_name_ = backend_->name();
}

FlowEngine::~FlowEngine() = default;

void FlowEngine::checkFits(int width, int height) {
  nb::gil_scoped_release released;
  std::lock_guard<std::mutex> hold(computeLock());
  vemo::refuseIfTooLarge(*backend_, height, width, backend_->pitchFor(width), 3);
}

CTensor<float> FlowEngine::flow(const CTensor<float>& frame1, const CTensor<float>& frame2,
                                const FlowSettings& settings) {
  nb::gil_scoped_release released;
  std::lock_guard<std::mutex> hold(computeLock());
  ThreadCount count(threads_);
  return flowBetween(*backend_, frame1, frame2, settings.sigma, settings.parameters);
}

PairFlow FlowEngine::flowPair(const CTensor<float>& frame1, const CTensor<float>& frame2,
                              const FlowSettings& settings) {
  nb::gil_scoped_release released;
  std::lock_guard<std::mutex> hold(computeLock());
  ThreadCount count(threads_);
  return computePairFlow(*backend_, frame1, frame2, settings.sigma, settings.parameters, true, true);
}

namespace {

struct Frames {
  CTensor<float> frame1, frame2;
};

// Every check (arrays, sizes, memory) before the frames are converted.
Frames framesOf(FlowEngine& engine, const AnyArray& a, const AnyArray& b) {
  const FrameShape shape1 = checkFrameArray(a, "frame1");
  checkSameSize(shape1, checkFrameArray(b, "frame2"));
  engine.checkFits(shape1.width, shape1.height);
  return Frames{frameFromArray(a, "frame1"), frameFromArray(b, "frame2")};
}

FlowSettings settingsOf(float sigma, float alpha, float beta, float gamma, float eta, int fixedPointIters,
                        int solverIters) {
  FlowSettings s{sigma, FlowParameters{alpha, beta, gamma, eta, fixedPointIters, solverIters}};
  checkSettings(s);
  return s;
}

}  // namespace

void bindEngine(nb::module_& m) {
  m.def("check_parameters",
        [](float sigma, float alpha, float beta, float gamma, float eta, int fixedPointIters, int solverIters) {
          settingsOf(sigma, alpha, beta, gamma, eta, fixedPointIters, solverIters);
        }, nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"), nb::arg("gamma"),
        nb::arg("eta"), nb::arg("fixed_point_iters"), nb::arg("solver_iters"));
  nb::class_<FlowEngine>(m, "Engine")
      .def(nb::init<const std::string&, int>(), nb::arg("device"), nb::arg("threads"))
      .def_prop_ro("device", &FlowEngine::backendName)
      .def_prop_ro("threads", &FlowEngine::threads)
      .def(
          "flow",
          [](FlowEngine& e, const AnyArray& a, const AnyArray& b, float sigma, float alpha, float beta, float gamma,
             float eta, int fixedPointIters, int solverIters) {
            const FlowSettings s = settingsOf(sigma, alpha, beta, gamma, eta, fixedPointIters, solverIters);
            const Frames f = framesOf(e, a, b);
            return tensorToArray(e.flow(f.frame1, f.frame2, s));
          },
          nb::arg("frame1"), nb::arg("frame2"), nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"),
          nb::arg("gamma"), nb::arg("eta"), nb::arg("fixed_point_iters"), nb::arg("solver_iters"))
      .def(
          "flow_pair",
          [](FlowEngine& e, const AnyArray& a, const AnyArray& b, float sigma, float alpha, float beta, float gamma,
             float eta, int fixedPointIters, int solverIters) {
            const FlowSettings s = settingsOf(sigma, alpha, beta, gamma, eta, fixedPointIters, solverIters);
            const Frames f = framesOf(e, a, b);
            const PairFlow flows = e.flowPair(f.frame1, f.frame2, s);
            return nb::make_tuple(tensorToArray(flows.forward), tensorToArray(flows.backward),
                                  maskToArray(flows.occlusions));
          },
          nb::arg("frame1"), nb::arg("frame2"), nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"),
          nb::arg("gamma"), nb::arg("eta"), nb::arg("fixed_point_iters"), nb::arg("solver_iters"));
}

}  // namespace vemopy
