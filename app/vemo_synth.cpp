// vemo-synth: writes a synthetic frame pair with known flow.
//
//   vemo-synth <dir> [<dx> <dy> [<width> <height> [<seed>]]]
//
// Writes <dir>/frame1.ppm, <dir>/frame2.ppm (binary P6) and <dir>/truth.flo,
// the constant flow (dx, dy) of frame 1 towards frame 2. Defaults: shift
// 2.5 1.5, size 320 240, seed 1. The folder is made when it is missing.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "common/diagnostics.h"
#include "driver/optic_flow.h"
#include "image/atomic_file.h"
#include "image/ppm_write.h"
#include "image/synthetic.h"

namespace {

void usage(std::FILE* stream, const char* program) {
  std::fprintf(stream,
               "Usage : %s <dir> [<dx> <dy> [<width> <height> [<seed>]]]\n"
               "Writes <dir>/frame1.ppm, <dir>/frame2.ppm and the ground truth <dir>/truth.flo\n"
               "(frame 2 is frame 1 shifted by dx, dy pixels), making the folder if needed.\n"
               "Defaults: dx 2.5, dy 1.5, width 320, height 240, seed 1.\n",
               program);
}

bool parseDouble(const char* text, double& out) {
  char* end = nullptr;
  errno = 0;
  out = std::strtod(text, &end);
  return end != text && *end == '\0' && errno == 0 && out == out;
}

bool parseLong(const char* text, long lo, long hi, long& out) {
  char* end = nullptr;
  errno = 0;
  out = std::strtol(text, &end, 10);
  return end != text && *end == '\0' && errno == 0 && out >= lo && out <= hi;
}

}  // namespace

int main(int argc, char** argv) {
  const char* program = argc > 0 ? argv[0] : "vemo-synth";
  const std::string first = argc >= 2 ? argv[1] : "";
  if (first == "-h" || first == "--help") {
    usage(stdout, program);
    return 0;
  }
  if (argc < 2 || argc == 3 || argc == 5 || argc > 7 || (first.size() > 1 && first[0] == '-')) {
    if (first.size() > 1 && first[0] == '-') std::fprintf(stderr, "%s: unknown option %s\n", program, first.c_str());
    usage(stderr, program);
    return 2;
  }
  double dx = 2.5, dy = 1.5;
  long width = 320, height = 240, seed = 1;
  if ((argc >= 4 && (!parseDouble(argv[2], dx) || !parseDouble(argv[3], dy))) ||
      (argc >= 6 && (!parseLong(argv[4], 1, 16384, width) || !parseLong(argv[5], 1, 16384, height))) ||
      (argc >= 7 && !parseLong(argv[6], 0, 4294967295L, seed))) {
    std::fprintf(stderr, "%s: invalid number; shifts are reals, sizes 1 to 16384, seed >= 0\n",
                 program);
    usage(stderr, program);
    return 2;
  }
  const std::string dir = argv[1];
  vemo::setMessagePrefix("vemo-synth: ");
  const std::string folders = makeFoldersFor(dir + "/frame1.ppm");
  if (!folders.empty()) {
    std::fprintf(stderr, "vemo-synth: cannot write %s/frame1.ppm: %s\n", dir.c_str(), folders.c_str());
    return 1;
  }
  try {
    CTensor<float> frame1, frame2, truth;
    NSynthetic::makeShiftedPair(static_cast<int>(width), static_cast<int>(height),
                                static_cast<float>(dx), static_cast<float>(dy),
                                static_cast<uint32_t>(seed), frame1, frame2, truth);
    NImageIO::writePPM(frame1, (dir + "/frame1.ppm").c_str());
    NImageIO::writePPM(frame2, (dir + "/frame2.ppm").c_str());
    COpticFlow::writeMiddlebury(truth, (dir + "/truth.flo").c_str());
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "%s: out of memory\n", program);
    return 1;
  } catch (...) {
    return 1;  // the message is already printed
  }
  return 0;
}
