#include "backends/cuda/device_probe.h"

#include <map>
#include <mutex>

namespace vemo {

const CudaProbe& probeCudaDevice(int ordinal) {
#if defined(VEMO_HAVE_CUDA)
  static std::mutex lock;
  static std::map<int, CudaProbe> probes;
  std::lock_guard<std::mutex> hold(lock);
  auto found = probes.find(ordinal);
  if (found == probes.end()) {
    CudaProbeFacts facts;
    readSystemGpuFacts(facts);
    gatherCudaFacts(ordinal, facts);
    found = probes.emplace(ordinal, judgeCudaDevice(facts)).first;
  }
  return found->second;
#else
  (void)ordinal;
  static const CudaProbe none = [] {
    CudaProbe probe;
    probe.reason = "this build has no CUDA backend";
    return probe;
  }();
  return none;
#endif
}

}  // namespace vemo
