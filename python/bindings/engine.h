// The Python module's Engine and parameter check, over vemo::Engine.
#pragma once

namespace nanobind {
class module_;
}

namespace vemopy {

void bindEngine(nanobind::module_& m);

}  // namespace vemopy
