#include "cancel.h"

#include <nanobind/nanobind.h>

namespace vemopy {

void bindCancel(nanobind::module_& m) {
  nanobind::class_<CancelFlag>(m, "CancelFlag")
      .def(nanobind::init<>())
      .def("set", [](CancelFlag& f) { f.set = true; })
      .def_prop_ro("is_set", [](const CancelFlag& f) { return f.set.load(); });
}

}  // namespace vemopy
