// Fuzzes the video reader (container, codec, conversion) with files held in
// memory, read through its custom I/O context: truncated and corrupted
// clips, clips of no frame or one, streams that change size, unusual pixel
// formats. Rejections (EVideoError) are expected; crashes, hangs, leaks and
// sanitizer reports are not. The pixel limit is lowered so that a small
// input announcing huge frames is refused quickly.
#include <cstdint>

#include "video/video_error.h"
#include "video/video_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  try {
    CVideoReader reader(data, size, "fuzz input", size_t(1) << 18);
    CTensor<float> frame;
    for (int n = 0; n < 24 && (n % 3 == 1 ? reader.skip() : reader.read(frame)); ++n) {
    }
  } catch (const EVideoError&) {
  }
  return 0;
}
