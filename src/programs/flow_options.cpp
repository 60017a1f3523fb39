#include "programs/flow_options.h"

#include <cerrno>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "driver/presets.h"
#include "image/write_picture.h"

namespace {

bool parseFloat(const std::string& text, float low, float high, bool lowOpen, float& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (*end != '\0' || errno == ERANGE || !std::isfinite(value)) return false;
  if (value < low || value > high || (lowOpen && value == low)) return false;
  out = static_cast<float>(value);
  return true;
}

bool parseInt(const std::string& text, long low, long high, int& out) {
  if (text.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE || value < low || value > high) return false;
  out = static_cast<int>(value);
  return true;
}

// Handler of an option's value; returns the reason it was refused, or "".
using ValueHandler = std::function<std::string(const std::string&)>;

ValueHandler floatIn(float& target, float low, float high, bool lowOpen, const char* range) {
  return [&target, low, high, lowOpen, range](const std::string& v) {
    return parseFloat(v, low, high, lowOpen, target) ? std::string() : std::string("expects a number ") + range;
  };
}

ValueHandler intIn(int& target, long low, long high, const char* range) {
  return [&target, low, high, range](const std::string& v) {
    return parseInt(v, low, high, target) ? std::string() : std::string("expects a whole number ") + range;
  };
}

ValueHandler text(std::string& target) {
  return [&target](const std::string& v) {
    if (v.empty()) return std::string("expects a file name");
    target = v;
    return std::string();
  };
}

ValueHandler picture(std::string& target) {
  return [&target](const std::string& v) {
    if (NImageIO::pictureFormatOf(v) == NImageIO::PictureFormat::Unknown)
      return std::string("expects a picture named .png, .jpg or .jpeg");
    target = v;
    return std::string();
  };
}

// Whether an option was given: a name that is not empty.
bool given(const std::string& name) { return !name.empty(); }

// The options that set one of the method's seven values.
const std::set<std::string> kMethodOptions = {"--sigma", "--alpha", "--beta", "--gamma", "--eta",
                                             "--fixed-point-iters", "--solver-iters"};

// The method's values: the preset's, then each option given explicitly.
void applyPreset(FlowOptions& o, const std::set<std::string>& given) {
  const FlowPreset& preset = findPreset(o.preset);
  const FlowParameters& p = preset.parameters;
  if (!given.count("--sigma")) o.sigma = preset.sigma;
  if (!given.count("--alpha")) o.alpha = p.alpha;
  if (!given.count("--beta")) o.beta = p.beta;
  if (!given.count("--gamma")) o.gamma = p.gamma;
  if (!given.count("--eta")) o.eta = p.eta;
  if (!given.count("--fixed-point-iters")) o.fixedPointIterations = p.fixedPointIterations;
  if (!given.count("--solver-iters")) o.solverIterations = p.solverIterations;
}

}  // namespace

bool parseFlowOptions(int argc, const char* const* argv, FlowOptions& o, std::string& error) {
  const std::map<std::string, ValueHandler> valued = {
      {"-o", text(o.output)},
      {"--output", text(o.output)},
      {"--preset",
       [&o](const std::string& v) {
         for (const FlowPreset& p : flowPresets())
           if (p.name == v) {
             o.preset = v;
             return std::string();
           }
         return "expects one of " + presetNames();
       }},
      {"--sigma", floatIn(o.sigma, 0.0f, 100.0f, false, "from 0 to 100")},
      {"--alpha", floatIn(o.alpha, 0.0f, 1e6f, false, "from 0 to 1e6")},
      {"--beta", floatIn(o.beta, 0.0f, 1e6f, false, "from 0 to 1e6")},
      {"--gamma", floatIn(o.gamma, 0.0f, 1e6f, false, "from 0 to 1e6")},
      {"--eta",
       [&o](const std::string& v) {
         // Any finite factor but 1: outside (0, 1) there is no pyramid and
         // only the full-size passes run; at 1 the number of scales is
         // undefined.
         float eta = 0.0f;
         if (!parseFloat(v, -FLT_MAX, FLT_MAX, false, eta)) return std::string("expects a finite number");
         if (eta == 1.0f) return std::string("cannot be 1 (a pyramid that never shrinks has no number of scales)");
         o.eta = eta;
         return std::string();
       }},
      {"--fixed-point-iters", intIn(o.fixedPointIterations, 0, 1000, "from 0 to 1000")},
      {"--solver-iters", intIn(o.solverIterations, 0, 10000, "from 0 to 10000")},
      {"--viz", picture(o.viz)},
      {"--viz-video", text(o.vizVideo)},
      {"--max-flow", floatIn(o.maxFlow, 0.0f, 1e6f, true, "above 0")},
      {"--backward", text(o.backward)},
      {"--occlusions", picture(o.occlusions)},
      {"--sequence", text(o.sequence)},
      {"--first", intIn(o.first, 0, 1000000000, "from 0")},
      {"--video", text(o.video)},
      {"--start", intIn(o.start, 0, 1000000000, "from 0")},
      {"--frames", intIn(o.frames, 2, 1000000000, "from 2")},
      {"--step", intIn(o.step, 1, 1000000, "from 1")},
      {"--threads", intIn(o.threads, 1, 1024, "from 1 to 1024")},
      {"--device",
       [&o](const std::string& v) {
         return vemo::parseDeviceName(v, o.device) ? std::string()
                                                       : std::string("expects ") + vemo::kDeviceNames;
       }},
  };
  const std::map<std::string, bool*> flags = {
      {"--legend", &o.legend}, {"--quiet", &o.quiet}, {"-q", &o.quiet}, {"--timings", &o.timings},
      {"--resume", &o.resume}};

  std::vector<std::string> positional;
  std::set<std::string> methodGiven;
  bool optionsEnded = false;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg == "-h" || arg == "--help") {
      o.help = true;
      return true;
    }
    std::string value;
    bool inlineValue = false;
    const size_t equals = arg.find('=');
    if (arg.compare(0, 2, "--") == 0 && equals != std::string::npos) {
      value = arg.substr(equals + 1);
      arg = arg.substr(0, equals);
      inlineValue = true;
    }
    const auto flag = flags.find(arg);
    if (flag != flags.end()) {
      if (inlineValue) {
        error = "option " + arg + " takes no value";
        return false;
      }
      *flag->second = true;
      continue;
    }
    const auto option = valued.find(arg);
    if (option == valued.end()) {
      error = "unknown option " + arg;
      return false;
    }
    if (!inlineValue) {
      if (i + 1 >= argc) {
        error = "option " + arg + " needs a value";
        return false;
      }
      value = argv[++i];
    }
    const std::string reason = option->second(value);
    if (!reason.empty()) {
      error = "option " + arg + " " + reason + ", not '" + value + "'";
      return false;
    }
    if (kMethodOptions.count(arg)) methodGiven.insert(arg);
  }
  applyPreset(o, methodGiven);

  const bool inVideo = given(o.video);
  if (given(o.sequence) && inVideo) {
    error = "--sequence and --video exclude each other";
    return false;
  }
  if (given(o.sequence) || inVideo) {
    if (!positional.empty()) {
      error = std::string(inVideo ? "--video" : "--sequence") + " takes no frame arguments";
      return false;
    }
  } else if (positional.size() != 2) {
    error = positional.size() < 2 ? "two frames are needed" : "too many arguments: " + positional[2];
    return false;
  } else {
    o.frame1 = positional[0];
    o.frame2 = positional[1];
  }
  if (o.resume && !given(o.sequence) && !inVideo) {
    error = "--resume only applies to --sequence and --video";
    return false;
  }
  if (o.first >= 0 && !given(o.sequence)) {
    error = "--first only applies to --sequence";
    return false;
  }
  if (!inVideo) {
    const char* videoOnly = o.start != 0 ? "--start" : o.frames != 0 ? "--frames" : o.step != 1 ? "--step"
                            : given(o.vizVideo) ? "--viz-video" : nullptr;
    if (videoOnly != nullptr) {
      error = std::string(videoOnly) + " only applies to --video";
      return false;
    }
  }
  if (!given(o.output) && !given(o.viz) && !given(o.backward) && !given(o.occlusions) && !given(o.vizVideo)) {
    error = "no output: give -o FLOW.flo, --viz, --backward, --occlusions or --viz-video";
    return false;
  }
  if ((o.maxFlow > 0.0f || o.legend) && !given(o.viz) && !given(o.vizVideo)) {
    error = "--max-flow and --legend only apply to --viz and --viz-video";
    return false;
  }
  return true;
}

namespace {

// The presets, one line each after the option's own.
std::string presetHelp() {
  std::string text = "operating point (default: default); time and\n"
                     "                           error against default's (2 threads, real pairs):\n";
  for (const FlowPreset& p : flowPresets()) {
    std::string name = p.name;
    name.resize(11, ' ');
    text += "                             " + name + p.summary + "\n";
  }
  return text;
}

}  // namespace

std::string flowUsage(const char* program) {
  std::string p = program;
  return "Usage: " + p + " [options] FRAME1 FRAME2 -o FLOW.flo\n"
         "       " + p + " [options] --sequence 'frames/%05d.png' -o 'flows/%05d.flo'\n"
         "       " + p + " [options] --video clip.mp4 -o 'flows/%05d.flo'\n"
         "Computes the dense optical flow from FRAME1 to FRAME2 (PNG, JPEG, PGM or PPM).\n"
         "\n"
         "Output (at least one):\n"
         "  -o, --output FILE        flow file (.flo); a pattern with --sequence, --video\n"
         "      --viz FILE.png       colour-coded flow picture (.png, .jpg or .jpeg)\n"
         "      --max-flow M         flow length (pixels) shown at full brightness in the\n"
         "                           picture (default: the longest vector of the field)\n"
         "      --legend             add the colour wheel to the picture\n"
         "      --backward FILE      also compute the flow from FRAME2 to FRAME1\n"
         "      --occlusions FILE.png  mask of pixels (white) whose forward and backward\n"
         "                           flows do not agree: occluded or leaving the frame\n"
         "Method (a preset sets these and further choices; options given override it;\n"
         "the defaults shown are the default preset's, vemo's own):\n"
         "      --preset NAME        " + presetHelp() +
         "      --sigma S            presmoothing std. deviation\n"
         "                           (default 0.8; a number from 0 to 100)\n"
         "      --alpha A            smoothness weight (default 30; a number from 0 to 1e6)\n"
         "      --beta B             descriptor-matching weight\n"
         "                           (default 300; a number from 0 to 1e6)\n"
         "      --gamma G            gradient-constancy weight\n"
         "                           (default 5; a number from 0 to 1e6)\n"
         "      --eta E              pyramid scaling factor; outside 0..1 no pyramid: only\n"
         "                           the full-size passes run\n"
         "                           (default 0.95; any finite number but 1)\n"
         "      --fixed-point-iters N  outer iterations per pyramid level\n"
         "                           (default 5; a whole number from 0 to 1000)\n"
         "      --solver-iters N     linear-solver iterations\n"
         "                           (default 10; a whole number from 0 to 10000)\n"
         "Sequences:\n"
         "      --sequence PATTERN   frames named by a printf pattern with one %d;\n"
         "                           every consecutive pair is computed and -o, --viz,\n"
         "                           --backward and --occlusions are patterns too\n"
         "      --first N            number of the first frame (default: 0 or 1)\n"
         "      --resume             keep the pairs whose outputs are all complete (from\n"
         "                           a run that was interrupted) and compute the rest;\n"
         "                           also with --video. SIGINT or SIGTERM stops a run\n"
         "                           between pairs: only complete outputs stay, and the\n"
         "                           exit status is 130 or 143\n"
         "Videos (any file FFmpeg decodes; outputs are patterns, numbered by the first\n"
         "frame of their pair, frames counting from 0):\n"
         "      --video FILE         compute the flow between consecutive frames\n"
         "      --start N            first frame used (default 0)\n"
         "      --frames N           number of frames used (default: to the end)\n"
         "      --step K             use every K-th frame: pairs are K frames apart\n"
         "      --viz-video FILE     colour-coded flow as a video at the clip's frame rate\n"
         "                           (H.264, or MPEG-4 Part 2 without an H.264 encoder),\n"
         "                           one scale throughout: --max-flow, or the longest\n"
         "                           vector of the first pair\n"
         "Running:\n"
         "      --device D           auto (CUDA when a GPU is usable), cpu, cuda or cuda:N\n"
         "                           (CUDA device N; cuda is cuda:0); a CUDA device that\n"
         "                           cannot be used gives a warning and the CPU\n"
         "      --threads N          CPU threads, 1 to 1024 (default: all cores)\n"
         "      --timings            print the stage timings\n"
         "  -q, --quiet              print errors and warnings only\n"
         "  -h, --help               show this text\n";
}
