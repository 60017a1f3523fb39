// The Python module's Engine: one backend, and the buffers it keeps, for
// many frame pairs, as vemo-flow keeps one for a whole sequence.
#pragma once

#include <memory>
#include <string>

#include "driver/flow_stages.h"
#include "driver/pair_flow.h"
#include "image/tensor.h"

namespace vemo {
class Backend;
}

namespace nanobind {
class module_;
}

namespace vemopy {

// The method's parameters as the Python calls take them.
struct FlowSettings {
  float sigma;  // presmoothing of both frames (0: none)
  FlowParameters parameters;
};

// ValueError unless every parameter lies in the range vemo-flow accepts.
void checkSettings(const FlowSettings& settings);

class FlowEngine {
 public:
  // device: "auto" (CUDA where a usable GPU is present, else the CPU),
  // "cpu" or "cuda" (RuntimeError when no GPU can be used); threads: OpenMP
  // threads for the CPU stages, 0 for OpenMP's default. ValueError for an
  // unknown device or a thread count outside 1..1024.
  FlowEngine(const std::string& device, int threads);
  ~FlowEngine();

  // "cpu" or "cuda": the backend that runs this engine's pairs.
  const std::string& backendName() const { return backend_name_; }
  int threads() const { return threads_; }

  // MemoryError (through BackendOutOfMemory) when a pair of frames of this
  // size cannot be computed in the backend's memory.
  void checkFits(int width, int height);

  // Run with the Python lock released; calls from several threads take
  // turns, since the stages keep process-wide timers and device state.
  CTensor<float> flow(const CTensor<float>& frame1, const CTensor<float>& frame2, const FlowSettings& settings);
  PairFlow flowPair(const CTensor<float>& frame1, const CTensor<float>& frame2, const FlowSettings& settings);

 private:
  std::unique_ptr<vemo::Backend> backend_;
  std::string backend_name_;
  int threads_;
};

void bindEngine(nanobind::module_& m);

}  // namespace vemopy
