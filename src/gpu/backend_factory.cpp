#include "gpu/backend_factory.h"

#include "backends/cpu/cpu_backend.h"

namespace flowcore {

namespace {
BackendRequest requested = BackendRequest::Auto;
}  // namespace

void requestBackend(BackendRequest request) { requested = request; }

// Every request resolves to the CPU backend until a GPU backend is built in.
const char* chosenBackendName() { return "cpu"; }

std::unique_ptr<Backend> makeBackend() { return std::make_unique<CpuBackend>(); }

}  // namespace flowcore
