#include "programs/eval_command.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "common/diagnostics.h"
#include "driver/flow_metrics.h"
#include "driver/flow_picture.h"
#include "driver/optic_flow.h"
#include "image/write_picture.h"

namespace {

constexpr const char* kProgram = "vemo-eval";

std::string usage() {
  return std::string("Usage: ") + kProgram + " [options] FLOW.flo GROUND_TRUTH.flo\n"
         "Measures a flow field against ground truth: mean end-point error (EPE), the\n"
         "average angular error (AAE), the classic angular error, the share of pixels\n"
         "with EPE above 1 and 3 px, and EPE by true-motion length (below 10, 10 to 40,\n"
         "above 40 px). Ground truth with a component of 1e9 or more is unknown, and so\n"
         "is ground truth that is not finite (NaN, infinite): both are left out of every\n"
         "measure, except that the AAE, as vemo computes it, divides by all pixels,\n"
         "unknown ones included. The report counts the pixels left out. A flow vector\n"
         "that is not finite where the truth is known is missing: it counts above every\n"
         "threshold, the means are taken over the other vectors (the report says over\n"
         "how many), and the AAE, whose divisor would count it, is not given.\n"
         "\n"
         "      --json               print one JSON object instead of text\n"
         "      --error-map ERR.png  picture of the end-point error, .png or .jpg (black 0,\n"
         "                           through red and yellow to white; unknown ground truth\n"
         "                           dark blue)\n"
         "      --error-scale E      error (px) shown as white (default 3)\n"
         "  -h, --help               show this text\n";
}

// Checks that file is a complete .flo file before the reader sees it: the
// tag PIEH, sizes that are not negative and a length that matches them
// (the reader itself, as vemo uses it, ignores the tag). Returns "" or what
// is wrong.
std::string floProblem(const std::string& file) {
  FILE* f = std::fopen(file.c_str(), "rb");
  if (f == nullptr) return std::strerror(errno);
  unsigned char header[12];
  const size_t got = std::fread(header, 1, sizeof header, f);
  const bool seekable = std::fseek(f, 0, SEEK_END) == 0;
  const long length = seekable ? std::ftell(f) : -1;
  std::fclose(f);
  if (got < sizeof header || std::memcmp(header, "PIEH", 4) != 0)
    return "not a .flo flow file (it does not start with the tag PIEH)";
  const auto field = [&header](int at) {
    return static_cast<int32_t>(static_cast<uint32_t>(header[at]) | static_cast<uint32_t>(header[at + 1]) << 8 |
                                static_cast<uint32_t>(header[at + 2]) << 16 |
                                static_cast<uint32_t>(header[at + 3]) << 24);
  };
  const long long width = field(4), height = field(8);
  const std::string size = std::to_string(width) + " x " + std::to_string(height);
  if (width < 0 || height < 0) return "a damaged .flo file: its header says " + size + " vectors";
  const long long expected = 12 + 8 * width * height;
  if (length != expected) {
    return "a damaged .flo file: its header says " + size + " vectors (" + std::to_string(expected) +
           " bytes) but it holds " + std::to_string(length) + " bytes";
  }
  if (width == 0 || height == 0) return "the flow is empty (" + size + " vectors)";
  return std::string();
}

int commandLineError(const std::string& error) {
  std::fprintf(stderr, "%s: %s\nRun '%s --help' for usage.\n", kProgram, error.c_str(), kProgram);
  return 2;
}

}  // namespace

int runEvalProgram(int argc, char** argv) {
  // The library's messages name the program too.
  vemo::setMessagePrefix("vemo-eval: ");
  bool json = false;
  std::string errorMap;
  float errorScale = 3.0f;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "-h" || arg == "--help") {
      std::fputs(usage().c_str(), stdout);
      return 0;
    } else if (arg == "--json") {
      json = true;
    } else if (arg == "--error-map" || arg == "--error-scale") {
      if (i + 1 >= argc) return commandLineError("option " + arg + " needs a value");
      const std::string value = argv[++i];
      if (arg == "--error-map") {
        if (NImageIO::pictureFormatOf(value) == NImageIO::PictureFormat::Unknown)
          return commandLineError("option --error-map expects a picture named .png, .jpg or .jpeg, not '" +
                                  value + "'");
        errorMap = value;
      } else {
        char* end = nullptr;
        errno = 0;
        const double scale = std::strtod(value.c_str(), &end);
        if (value.empty() || *end != '\0' || errno != 0 || !(scale > 0.0) || !std::isfinite(scale)) {
          return commandLineError("option --error-scale expects a number above 0, not '" + value + "'");
        }
        errorScale = static_cast<float>(scale);
      }
    } else if (arg.size() > 1 && arg[0] == '-') {
      return commandLineError("unknown option " + arg);
    } else {
      files.push_back(arg);
    }
  }
  if (files.size() != 2) return commandLineError("a flow file and a ground-truth file are needed");

  // The flow reader reports an unopenable file on standard output and reads
  // any tag; check first so that standard output carries nothing but the
  // report and a file of another kind is named as such.
  for (const std::string& file : files) {
    const std::string problem = floProblem(file);
    if (!problem.empty()) {
      std::fprintf(stderr, "%s: cannot read %s: %s\n", kProgram, file.c_str(), problem.c_str());
      return 1;
    }
  }
  CTensor<float> flow, truth;
  COpticFlow::readMiddlebury(files[0].c_str(), flow);
  COpticFlow::readMiddlebury(files[1].c_str(), truth);
  if (flow.xSize != truth.xSize || flow.ySize != truth.ySize || flow.elements() == 0) {
    std::fprintf(stderr, "%s: %s is %d x %d but %s is %d x %d\n", kProgram, files[0].c_str(), flow.xSize,
                 flow.ySize, files[1].c_str(), truth.xSize, truth.ySize);
    return 1;
  }
  const FlowMetrics metrics = evaluateFlow(flow, truth);
  if (!errorMap.empty()) NImageIO::writePicture(errorPicture(endPointErrors(flow, truth), errorScale), errorMap);
  std::fputs((json ? metricsJson(metrics) : metricsText(metrics)).c_str(), stdout);
  return 0;
}
