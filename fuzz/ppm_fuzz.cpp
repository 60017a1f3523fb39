// Fuzzes the binary PPM reader with arbitrary files. Rejections (exceptions
// after a message) are expected; crashes, hangs, leaks and sanitizer reports
// are not.
#include <cstdint>

#include "fuzz_file.h"
#include "image/tensor.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzFile file(data, size, ".ppm");
  CTensor<float> image(2, 2, 1, 0.0f);
  try {
    image.readFromPPM(file.path());
  } catch (...) {
  }
  return 0;
}
