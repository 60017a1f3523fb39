// Fuzzes the .flo reader with arbitrary files, and writes back what it
// accepted: the written file must read back to the same floats.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "driver/optic_flow.h"
#include "fuzz_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzFile file(data, size, ".flo");
  CTensor<float> flow;
  try {
    COpticFlow::readMiddlebury(file.path(), flow);
  } catch (...) {
    return 0;
  }
  FuzzFile copy(nullptr, 0, "-copy.flo");
  CTensor<float> again;
  try {
    COpticFlow::writeMiddlebury(flow, copy.path());
    COpticFlow::readMiddlebury(copy.path(), again);
  } catch (...) {
    std::abort();  // a flow we accepted must survive a round trip
  }
  if (again.elements() != flow.elements() ||
      (flow.elements() > 0 &&
       std::memcmp(again.data, flow.data, flow.elements() * sizeof(float)) != 0)) {
    std::abort();
  }
  return 0;
}
