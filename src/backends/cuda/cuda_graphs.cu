// Repeatable work of the CUDA backend recorded as CUDA graphs.
//
// A solve of a level is the same ~70 operations with the same arguments in
// every fixed-point iteration of that level. The first call with a key issues
// them directly, which also allocates whatever they need (row sums, solver
// scalars) outside any capture; the second call captures them on a stream of
// their own into a graph, instantiates it and launches it on the default
// stream; later calls launch the graph again. A graph holds the kernels'
// arguments by value, so the key (the caller's, plus the backend's own
// buffers that the operations use) must decide every argument.
//
// The capture stream is a blocking stream and the capture mode global: an
// operation that goes to the default stream, allocates or waits while a
// capture is open is an error that ends the run with a message, never a
// silent reordering. Reviewers: every operation reachable from recorded work
// must issue to stream() (cuda_memory.cu, cuda_solver.cu, cuda_reduce.cu).
#include <cuda_runtime.h>

#include <algorithm>

#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_work_policy.h"

namespace vemo {

namespace {

void endAbandonedCapture(cudaStream_t stream) noexcept {
  cudaGraph_t graph = nullptr;
  cudaStreamEndCapture(stream, &graph);  // fails by design: the capture was broken off
  if (graph != nullptr) VEMO_CUDA_TEARDOWN(cudaGraphDestroy(graph));
  cudaGetLastError();  // the abandoned capture's error is not this launch's
}

}  // namespace

void CudaBackend::issueRepeatable(const RepeatKey& key, FunctionRef work) {
  // Under VEMO_CUDA_SYNC every launch waits, which a capture forbids: the
  // work is issued directly.
  if (!recording_ || issueStream_ != nullptr || !key.complete() || cuda::syncAfterLaunches()) {
    work();
    return;
  }
  RepeatKey full = key;
  full.add(cgScalars()).add(rowSums_).add(static_cast<long long>(rowSumCapacity_));
  if (!full.complete()) {
    work();
    return;
  }
  auto entry = std::find_if(repeats_.begin(), repeats_.end(), [&](const RepeatEntry& e) { return e.key == full; });
  if (entry == repeats_.end()) {
    if (repeats_.size() >= 2 * static_cast<std::size_t>(cuda::kMaxRecordedGraphs)) {
      auto oldest = std::min_element(repeats_.begin(), repeats_.end(), [](const RepeatEntry& a, const RepeatEntry& b) {
        return a.lastUse < b.lastUse;
      });
      // A graph still running is freed when it completes.
      if (oldest->graph != nullptr) VEMO_CUDA_CALL(cudaGraphExecDestroy(oldest->graph));
      repeats_.erase(oldest);
    }
    repeats_.push_back(RepeatEntry{full, 0, nullptr, 0});
    entry = repeats_.end() - 1;
  }
  entry->lastUse = ++repeatClock_;
  if (entry->graph != nullptr) {
    VEMO_CUDA_CALL(cudaGraphLaunch(entry->graph, nullptr));
    return;
  }
  if (++entry->calls <= cuda::kDirectIssuesBeforeRecording) {
    work();
    return;
  }
  const std::size_t index = static_cast<std::size_t>(entry - repeats_.begin());

  if (captureStream_ == nullptr) {
    cudaStream_t stream = nullptr;
    VEMO_CUDA_CALL(cudaStreamCreate(&stream));
    captureStream_ = stream;
  }
  VEMO_CUDA_CALL(cudaStreamBeginCapture(captureStream_, cudaStreamCaptureModeGlobal));
  issueStream_ = captureStream_;
  try {
    work();
  } catch (...) {
    issueStream_ = nullptr;
    endAbandonedCapture(captureStream_);
    throw;
  }
  issueStream_ = nullptr;
  cudaGraph_t graph = nullptr;
  VEMO_CUDA_CALL(cudaStreamEndCapture(captureStream_, &graph));
  cudaGraphExec_t exec = nullptr;
  const cudaError_t instantiated = cudaGraphInstantiate(&exec, graph, 0);
  VEMO_CUDA_TEARDOWN(cudaGraphDestroy(graph));
  VEMO_CUDA_CALL(instantiated);
  repeats_[index].graph = exec;
  VEMO_CUDA_CALL(cudaGraphLaunch(exec, nullptr));
}

}  // namespace vemo
