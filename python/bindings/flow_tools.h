// Module functions beside the Engine: frame input, colour coding, error
// measures, picture output and the GPU count.
#pragma once

namespace nanobind {
class module_;
}

namespace vemopy {

void bindFlowTools(nanobind::module_& m);

}  // namespace vemopy
