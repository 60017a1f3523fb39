#include "gpu/backend_factory.h"

#include "backends/cpu/cpu_backend.h"

namespace vemo {

std::unique_ptr<Backend> makeBackend() { return std::make_unique<CpuBackend>(); }

}  // namespace vemo
