#include "engine.h"

#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include "arrays.h"
#include "cancel.h"
#include "vemo/cancel.hpp"

namespace vemopy {

namespace {

// The seven values as given (the Python layer has put them over the preset's)
// and the preset whose inner choices go with them.
vemo::Parameters parametersOf(float sigma, float alpha, float beta, float gamma, float eta, int fixedPointIters,
                              int solverIters, const std::string& preset) {
  vemo::Parameters p;
  p.preset = preset;
  p.sigma = sigma;
  p.alpha = alpha;
  p.beta = beta;
  p.gamma = gamma;
  p.eta = eta;
  p.fixed_point_iters = fixedPointIters;
  p.solver_iters = solverIters;
  p.validate();
  return p;
}

struct Pair {
  FrameArray a, b;
};

// Both frames as the library sees them; the library checks the rest.
void viewPair(const AnyArray& a, const AnyArray& b, Pair& pair) {
  viewFrame(a, "frame1", pair.a);
  viewFrame(b, "frame2", pair.b);
}

}  // namespace

void bindEngine(nb::module_& m) {
  m.def("check_parameters",
        [](float sigma, float alpha, float beta, float gamma, float eta, int fixedPointIters, int solverIters,
           const std::string& preset) {
          parametersOf(sigma, alpha, beta, gamma, eta, fixedPointIters, solverIters, preset);
        }, nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"), nb::arg("gamma"),
        nb::arg("eta"), nb::arg("fixed_point_iters"), nb::arg("solver_iters"), nb::arg("preset") = "default");
  m.def("preset_names", &vemo::Parameters::preset_names);
  // The seven values of a preset, in the order of check_parameters.
  m.def("preset_parameters", [](const std::string& name) {
    const vemo::Parameters p = vemo::Parameters::from_preset(name);
    return nb::make_tuple(p.sigma, p.alpha, p.beta, p.gamma, p.eta, p.fixed_point_iters, p.solver_iters);
  }, nb::arg("name"));
  m.def("version", &vemo::version);
  m.def("cuda_devices", &vemo::cuda_devices);
  nb::class_<vemo::Engine>(m, "Engine")
      .def(
          "__init__",
          [](vemo::Engine* self, const std::string& device, int threads) {
            nb::gil_scoped_release released;
            new (self) vemo::Engine(device, threads);
          },
          nb::arg("device"), nb::arg("threads"))
      .def_prop_ro("device", &vemo::Engine::device)
      .def_prop_ro("threads", &vemo::Engine::threads)
      .def(
          "flow",
          [](vemo::Engine& e, const AnyArray& a, const AnyArray& b, float sigma, float alpha, float beta, float gamma,
             float eta, int fixedPointIters, int solverIters, const std::string& preset, const CancelFlag* cancel) {
            const vemo::Parameters p =
                parametersOf(sigma, alpha, beta, gamma, eta, fixedPointIters, solverIters, preset);
            Pair pair;
            viewPair(a, b, pair);
            vemo::Flow flow;
            {
              nb::gil_scoped_release released;
              const vemo::CancelScope scope(flagOf(cancel));
              flow = e.flow(pair.a.view, pair.b.view, p);
            }
            return flowToArray(flow);
          },
          nb::arg("frame1"), nb::arg("frame2"), nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"),
          nb::arg("gamma"), nb::arg("eta"), nb::arg("fixed_point_iters"), nb::arg("solver_iters"),
          nb::arg("preset"), nb::arg("cancel").none() = nb::none())
      .def(
          "flow_pair",
          [](vemo::Engine& e, const AnyArray& a, const AnyArray& b, float sigma, float alpha, float beta, float gamma,
             float eta, int fixedPointIters, int solverIters, const std::string& preset, const CancelFlag* cancel) {
            const vemo::Parameters p =
                parametersOf(sigma, alpha, beta, gamma, eta, fixedPointIters, solverIters, preset);
            Pair pair;
            viewPair(a, b, pair);
            vemo::FlowPair flows;
            {
              nb::gil_scoped_release released;
              const vemo::CancelScope scope(flagOf(cancel));
              flows = e.flow_pair(pair.a.view, pair.b.view, p);
            }
            return nb::make_tuple(flowToArray(flows.forward), flowToArray(flows.backward),
                                  maskToArray(flows.occluded, flows.forward.width(), flows.forward.height()));
          },
          nb::arg("frame1"), nb::arg("frame2"), nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"),
          nb::arg("gamma"), nb::arg("eta"), nb::arg("fixed_point_iters"), nb::arg("solver_iters"),
          nb::arg("preset"), nb::arg("cancel").none() = nb::none());
}

}  // namespace vemopy
