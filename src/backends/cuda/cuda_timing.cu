// Stage stretches of the CUDA backend, timed by events.
//
// Opening and closing a stretch records an event on the default stream and
// returns at once; the lengths are added to their totals in
// settleStretches(), which waits for the device once for all of them (the
// stage timers are printed right after). One-block levels time their solves
// with the device's clock into a counter per total, read at the same point.
#include <cuda_runtime.h>

#include <algorithm>
#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "common/timer.h"

namespace vemo {

CUevent_st* CudaBackend::recordEvent() {
  if (eventsUsed_ == events_.size()) {
    cudaEvent_t event = nullptr;
    VEMO_CUDA_CALL(cudaEventCreate(&event));
    try {
      events_.push_back(event);
    } catch (...) {
      VEMO_CUDA_TEARDOWN(cudaEventDestroy(event));
      throw;
    }
  }
  cudaEvent_t event = events_[eventsUsed_++];
  VEMO_CUDA_CALL(cudaEventRecord(event, nullptr));
  return event;
}

void CudaBackend::openStretch(timeval& start) {
  // An event recorded while a solve is being captured would become part of
  // the graph instead of marking a time.
  if (issueStream_ != nullptr) cuda::refuseArguments("CudaBackend: a stage stretch opened inside recorded work");
  stamp(start);
  openStretches_.push_back(OpenStretch{&start, recordEvent()});
}

void CudaBackend::closeStretch(const timeval& start, timeval& finish, double& total) {
  if (issueStream_ != nullptr) cuda::refuseArguments("CudaBackend: a stage stretch closed inside recorded work");
  auto open = std::find_if(openStretches_.rbegin(), openStretches_.rend(),
                           [&](const OpenStretch& o) { return o.start == &start; });
  if (open == openStretches_.rend()) {  // not opened here: host time
    vemo::closeStretch(start, finish, total);
    return;
  }
  stamp(finish);
  const ClosedStretch closed{open->event, recordEvent(), &total};
  openStretches_.erase(std::next(open).base());
  closedStretches_.push_back(closed);
}

unsigned long long* CudaBackend::solveClockFor(double* total) {
  if (solveClocks_ == nullptr) {
    void* p = nullptr;
    VEMO_CUDA_CALL(cudaMalloc(&p, kSolveClocks * sizeof(unsigned long long)));
    solveClocks_ = static_cast<unsigned long long*>(p);
    VEMO_CUDA_CALL(cudaMemsetAsync(solveClocks_, 0, kSolveClocks * sizeof(unsigned long long), nullptr));
  }
  int slot = -1;
  for (int k = 0; k < kSolveClocks && slot < 0; ++k)
    if (solveClockTotals_[k] == total) slot = k;
  for (int k = 0; k < kSolveClocks && slot < 0; ++k)
    if (solveClockTotals_[k] == nullptr) slot = k;
  if (slot < 0)
    cuda::refuseArguments("CudaBackend: more than " + std::to_string(kSolveClocks) +
                          " solver totals between two settle points");
  solveClockTotals_[slot] = total;
  solveClocksUsed_ = true;
  return solveClocks_ + slot;
}

void CudaBackend::settleStretches() {
  if (issueStream_ != nullptr) cuda::refuseArguments("CudaBackend: stretches settled inside recorded work");
  if (closedStretches_.empty() && !solveClocksUsed_) return;
  // The one wait: a blocking copy of the solve clocks waits for everything
  // issued so far on the default stream, events included; without clocks,
  // the last closed stretch's event is waited for.
  unsigned long long clocks[kSolveClocks] = {};
  if (solveClocksUsed_)
    VEMO_CUDA_CALL(cudaMemcpy(clocks, solveClocks_, sizeof clocks, cudaMemcpyDeviceToHost));
  else
    VEMO_CUDA_CALL(cudaEventSynchronize(closedStretches_.back().finish));
  for (const ClosedStretch& c : closedStretches_) {
    float ms = 0.0f;
    VEMO_CUDA_CALL(cudaEventElapsedTime(&ms, c.start, c.finish));
    *c.total += ms;
  }
  closedStretches_.clear();
  if (solveClocksUsed_) {
    for (int k = 0; k < kSolveClocks; ++k) {
      if (solveClockTotals_[k] != nullptr) *solveClockTotals_[k] += static_cast<double>(clocks[k]) * 1e-6;
      solveClockTotals_[k] = nullptr;
    }
    VEMO_CUDA_CALL(cudaMemsetAsync(solveClocks_, 0, sizeof clocks, nullptr));
    solveClocksUsed_ = false;
  }
  // Events of stretches still open stay in use; the others return to the
  // pool.
  std::size_t kept = 0;
  for (const OpenStretch& o : openStretches_) {
    auto at = std::find(events_.begin() + kept, events_.end(), o.event);
    if (at != events_.end()) std::iter_swap(events_.begin() + kept++, at);
  }
  eventsUsed_ = kept;
  releaseRetired();
}

void CudaBackend::releaseRunState() noexcept {
  for (RepeatEntry& entry : repeats_)
    if (entry.graph != nullptr) VEMO_CUDA_TEARDOWN(cudaGraphExecDestroy(entry.graph));
  repeats_.clear();
  if (captureStream_ != nullptr) VEMO_CUDA_TEARDOWN(cudaStreamDestroy(captureStream_));
  captureStream_ = nullptr;
  for (cudaEvent_t event : events_) VEMO_CUDA_TEARDOWN(cudaEventDestroy(event));
  events_.clear();
  eventsUsed_ = 0;
  openStretches_.clear();
  closedStretches_.clear();
  if (solveClocks_ != nullptr) VEMO_CUDA_TEARDOWN(cudaFree(solveClocks_));
  solveClocks_ = nullptr;
  releaseRetired();
}

}  // namespace vemo
