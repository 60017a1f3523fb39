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

// compute(view1, view2) on both frames as the library sees them (the
// library checks the rest), without the GIL and under the caller's cancel
// flag.
template <typename Compute>
auto onPair(const AnyArray& a, const AnyArray& b, const CancelFlag* cancel, Compute compute) {
  FrameArray frame1, frame2;
  viewFrame(a, "frame1", frame1);
  viewFrame(b, "frame2", frame2);
  nb::gil_scoped_release released;
  const vemo::CancelScope scope(flagOf(cancel));
  return compute(frame1.view, frame2.view);
}

}  // namespace

void bindEngine(nb::module_& m) {
  // The checked values the Engine's calls take, opaque to Python.
  nb::class_<vemo::Parameters>(m, "Parameters");
  m.def("check_parameters", &parametersOf, nb::arg("sigma"), nb::arg("alpha"), nb::arg("beta"), nb::arg("gamma"),
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
          [](vemo::Engine& e, const AnyArray& a, const AnyArray& b, const vemo::Parameters& p,
             const CancelFlag* cancel) {
            return flowToArray(onPair(a, b, cancel, [&](const vemo::ImageView& va, const vemo::ImageView& vb) {
              return e.flow(va, vb, p);
            }));
          },
          nb::arg("frame1"), nb::arg("frame2"), nb::arg("parameters"), nb::arg("cancel").none() = nb::none())
      .def(
          "flow_pair",
          [](vemo::Engine& e, const AnyArray& a, const AnyArray& b, const vemo::Parameters& p,
             const CancelFlag* cancel) {
            const vemo::FlowPair flows =
                onPair(a, b, cancel, [&](const vemo::ImageView& va, const vemo::ImageView& vb) {
                  return e.flow_pair(va, vb, p);
                });
            return nb::make_tuple(flowToArray(flows.forward), flowToArray(flows.backward),
                                  maskToArray(flows.occluded, flows.forward.width(), flows.forward.height()));
          },
          nb::arg("frame1"), nb::arg("frame2"), nb::arg("parameters"), nb::arg("cancel").none() = nb::none());
}

}  // namespace vemopy
