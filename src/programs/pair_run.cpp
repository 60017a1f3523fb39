#include "programs/pair_run.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>

#include "api/frames.h"
#include "driver/presets.h"
#include "image/atomic_file.h"
#include "image/exceptions.h"
#include "matching/hog_match_driver.h"
#include "variational/pyramid.h"
#include "vemo/vemo.hpp"

namespace {

constexpr int kMatchingMinimum = 25;  // smaller frames have no matching grid point

// The stage times of the flow just computed, one labelled line per stage
// (the pipeline's own lines are the vemo program's format and stay off).
// The fixed-point iterations include their linear solves.
void printTimings(const vemo::Timings& t, int width, int height, const FlowOptions& o) {
  const float eta = o.eta;
  // The grid the preset's matching lays on its (possibly reduced) frames.
  const vemo::MatchSettings match = findPreset(o.preset).parameters.matching;
  const int matchWidth = (width + match.downscale - 1) / match.downscale;
  const int matchHeight = (height + match.downscale - 1) / match.downscale;
  int levels = 0;
  const int scales = vemo::pyramidScaleCount(height, width, eta);
  for (int s = 0; s <= scales; ++s) levels += vemo::pyramidLevelIsDegenerate(s, height, width, eta) ? 0 : 1;
  std::printf("  %d x %d pixels, matching grid %d x %d points, %d pyramid level%s\n", width, height,
              vemo::matchGridCount(matchWidth, match.gridStep), vemo::matchGridCount(matchHeight, match.gridStep), levels, levels == 1 ? "" : "s");
  const std::pair<const char*, double> lines[] = {
      {"  presmoothing", t.presmoothing},
      {"  upload and download", t.transfers},
      {"  descriptor matching", t.matching},
      {"    descriptors", t.descriptors},
      {"    matching", t.search},
      {"  variational part", t.variational},
      {"    fixed-point iterations", t.fixed_point},
      {"      linear solves", t.solves},
      {"    warping", t.warping},
      {"    downsampling", t.downsampling},
  };
  for (const auto& line : lines) std::printf("%-28s%10.2f ms\n", line.first, line.second);
  std::printf("%-28s%10.2f ms\n", "  total", t.total);
}

// A frame as the readers give it (three planes) in the Engine's layout:
// interleaved R, G, B floats.
std::vector<float> interleaved(const CTensor<float>& frame) {
  const std::size_t plane = frame.planeSize();
  std::vector<float> samples(plane * 3);
  for (std::size_t i = 0; i < plane; ++i)
    for (int c = 0; c < 3; ++c) samples[i * 3 + c] = frame.data[(frame.zSize == 3 ? c : 0) * plane + i];
  return samples;
}

vemo::Parameters parametersOf(const FlowOptions& o) {
  vemo::Parameters p;
  p.sigma = o.sigma;
  p.alpha = o.alpha;
  p.beta = o.beta;
  p.gamma = o.gamma;
  p.eta = o.eta;
  p.fixed_point_iters = o.fixedPointIterations;
  p.solver_iters = o.solverIterations;
  p.preset = o.preset;
  return p;
}

// The flow from `from` to `to`; with --timings, under a line naming it and
// followed by its own stage times.
vemo::Flow labelledFlow(vemo::Engine& engine, const std::vector<float>& from, const std::vector<float>& to, int width,
                        int height, const FlowOptions& o, const char* direction, const std::string& fromName,
                        const std::string& toName) {
  if (o.timings) std::printf("%s flow %s -> %s:\n", direction, fromName.c_str(), toName.c_str());
  vemo::Flow flow = engine.flow(vemo::ImageView(from.data(), width, height, 3),
                                vemo::ImageView(to.data(), width, height, 3), parametersOf(o));
  if (o.timings) printTimings(engine.last_timings(), width, height, o);
  return flow;
}

}  // namespace

std::vector<std::string> PairOutputs::names() const {
  std::vector<std::string> out;
  for (const std::string* name : {&flow, &backward, &viz, &occlusions})
    if (!name->empty()) out.push_back(*name);
  return out;
}

bool PairOutputs::complete(int width, int height) const {
  for (const std::string* flowName : {&flow, &backward}) {
    if (flowName->empty()) continue;
    struct stat info;
    unsigned char header[12];
    FILE* file = std::fopen(flowName->c_str(), "rb");
    if (file == nullptr) return false;
    const bool read = std::fread(header, 1, sizeof header, file) == sizeof header && fstat(fileno(file), &info) == 0;
    std::fclose(file);
    const auto le32 = [&header](int at) {
      return static_cast<long long>(header[at] | header[at + 1] << 8 | header[at + 2] << 16 |
                                    static_cast<unsigned>(header[at + 3]) << 24);
    };
    if (!read || std::memcmp(header, "PIEH", 4) != 0 || le32(4) != width || le32(8) != height ||
        info.st_size != 12 + 8LL * width * height)
      return false;
  }
  for (const std::string* picture : {&viz, &occlusions}) {
    struct stat info;
    if (!picture->empty() && (stat(picture->c_str(), &info) != 0 || !S_ISREG(info.st_mode))) return false;
  }
  return true;
}

std::string interruptedLine(const PairCounts& counts, long long total, const std::string& video) {
  std::string line = "interrupted after " + std::to_string(counts.done());
  line += total >= 0 ? " of " + pairCount(total) : (counts.done() == 1 ? " pair" : " pairs");
  if (counts.kept > 0) line += " (" + std::to_string(counts.kept) + " kept, " + std::to_string(counts.computed) +
                               " computed)";
  line += counts.done() > 0 ? ": their outputs are complete" : ": nothing was written";
  if (!video.empty()) line += "; " + video + " holds them";
  return line + "; the same command with --resume computes the rest";
}

std::string resumedCounts(const PairCounts& counts, bool resume) {
  if (!resume) return std::string();
  return ", " + std::to_string(counts.kept) + (counts.kept == 1 ? " complete pair" : " complete pairs") +
         " kept, " + std::to_string(counts.computed) + " computed";
}

vemo::Engine openEngine(const FlowOptions& o) {
  const vemo::DeviceRequest& r = o.device;
  const std::string device = r.backend == vemo::BackendRequest::Auto  ? "auto"
                             : r.backend == vemo::BackendRequest::Cpu ? "cpu"
                                                                       : "cuda:" + std::to_string(r.cudaDevice);
  try {
    return vemo::Engine(device, o.threads);
  } catch (const vemo::DeviceError& e) {
    vemo::Engine cpu("cpu", o.threads);
    std::fprintf(stderr, "%s: warning: %s; running on the %s backend instead\n", kFlowProgram, e.what(),
                 cpu.device().c_str());
    return cpu;
  }
}

void checkFrames(const CTensor<float>& frame1, const CTensor<float>& frame2, const std::string& name1,
                 const std::string& name2, bool quiet) {
  if (frame1.xSize != frame2.xSize || frame1.ySize != frame2.ySize) {
    std::fprintf(stderr, "%s: frames differ in size: %s is %d x %d, %s is %d x %d\n", kFlowProgram, name1.c_str(),
                 frame1.xSize, frame1.ySize, name2.c_str(), frame2.xSize, frame2.ySize);
    throw ETensorIncompatibleSize();
  }
  if (frame1.xSize < 2 || frame1.ySize < 2) {
    std::fprintf(stderr, "%s: frames of %d x %d are too small: at least 2 x 2 pixels are needed\n", kFlowProgram,
                 frame1.xSize, frame1.ySize);
    throw ETensorIncompatibleSize();
  }
  if (!quiet && (frame1.xSize < kMatchingMinimum || frame1.ySize < kMatchingMinimum)) {
    std::fprintf(stderr, "%s: note: frames of %d x %d are below %d x %d: descriptor matching is skipped\n",
                 kFlowProgram, frame1.xSize, frame1.ySize, kMatchingMinimum, kMatchingMinimum);
  }
}

void prepareOutput(const std::string& name, const char* example) {
  if (name.empty()) return;
  struct stat info;
  if (stat(name.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
    std::fprintf(stderr, "%s: cannot write %s: it is a folder; name a file in it, such as %s/%s\n", kFlowProgram,
                 name.c_str(), name.c_str(), example);
    throw EFileNotFound();
  }
  const std::string folders = makeFoldersFor(name);
  const size_t slash = name.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : name.substr(0, slash));
  if (!folders.empty() || access(dir.c_str(), W_OK) != 0) {
    std::fprintf(stderr, "%s: cannot write %s: %s\n", kFlowProgram, name.c_str(),
                 folders.empty() ? ("folder " + dir + " is not writable").c_str() : folders.c_str());
    throw EFileNotFound();
  }
}

void prepareOutputs(const PairOutputs& first, const FlowOptions& o) {
  prepareOutput(first.flow, "flow.flo");
  prepareOutput(first.backward, "back.flo");
  prepareOutput(first.viz, "flow.png");
  prepareOutput(first.occlusions, "occlusions.png");
  for (const std::string* name : {&o.output, &o.backward}) {
    const size_t dot = name->find_last_of("./");
    if (!name->empty() && (dot == std::string::npos || name->compare(dot, std::string::npos, ".flo") != 0)) {
      std::fprintf(stderr, "%s: warning: %s does not end in .flo; it is written as a .flo file all the same\n",
                   kFlowProgram, name->c_str());
    }
  }
}

void checkReadable(const std::string& frame) {
  struct stat info;
  const char* problem = nullptr;
  if (stat(frame.c_str(), &info) != 0 || access(frame.c_str(), R_OK) != 0) {
    problem = std::strerror(errno);
  } else if (S_ISDIR(info.st_mode)) {
    problem = "it is a folder, not a frame";
  }
  if (problem != nullptr) {
    std::fprintf(stderr, "%s: cannot read %s: %s\n", kFlowProgram, frame.c_str(), problem);
    throw EFileNotFound();
  }
}

CTensor<float> runPair(vemo::Engine& engine, const CTensor<float>& frame1, const CTensor<float>& frame2,
                       const FlowOptions& o, const PairOutputs& out, const std::string& name1,
                       const std::string& name2) {
  const int width = frame1.xSize, height = frame1.ySize;
  const std::vector<float> a = interleaved(frame1), b = interleaved(frame2);
  const vemo::Flow forward = labelledFlow(engine, a, b, width, height, o, "Forward", name1, name2);
  vemo::Flow backward;
  if (!out.backward.empty() || !out.occlusions.empty())
    backward = labelledFlow(engine, b, a, width, height, o, "Backward", name2, name1);
  vemo::Image picture, mask;
  if (!out.viz.empty()) picture = vemo::flow_to_rgb(forward, o.maxFlow, o.legend);
  if (!out.occlusions.empty()) {
    const std::vector<std::uint8_t> occluded = vemo::occlusion_mask(forward, backward);
    mask = vemo::Image(width, height, 1, vemo::PixelType::UInt8);
    std::uint8_t* pixels = static_cast<std::uint8_t*>(mask.data());
    for (std::size_t i = 0; i < occluded.size(); ++i) pixels[i] = occluded[i] ? 255 : 0;
  }

  if (!out.flow.empty()) vemo::write_flo(out.flow, forward);
  if (!out.backward.empty()) vemo::write_flo(out.backward, backward);
  if (!out.viz.empty()) vemo::write_image(out.viz, picture.view());
  if (!out.occlusions.empty()) vemo::write_image(out.occlusions, mask.view());
  return vemo::api::tensorFromFlow(forward);
}

std::vector<std::string> outputRanges(const PairOutputs& first, const PairOutputs& last) {
  const std::vector<std::string> a = first.names(), b = last.names();
  std::vector<std::string> out;
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) out.push_back(a[i] == b[i] ? a[i] : a[i] + " to " + b[i]);
  return out;
}

std::string pairCount(long long pairs) { return std::to_string(pairs) + (pairs == 1 ? " pair" : " pairs"); }

std::string listed(const std::vector<std::string>& names) {
  std::string out;
  for (const std::string& name : names) out += (out.empty() ? "" : ", ") + name;
  return out;
}

double wallSeconds() {
  timeval t;
  gettimeofday(&t, nullptr);
  return t.tv_sec + t.tv_usec * 1e-6;
}
