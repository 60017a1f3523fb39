#include "driver/flow_command.h"

#include <omp.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "backends/cuda/device_probe.h"
#include "common/stage_lines.h"
#include "driver/flow_options.h"
#include "driver/flow_picture.h"
#include "driver/pair_flow.h"
#include "driver/optic_flow.h"
#include "driver/sequence.h"
#include "backends/backend_factory.h"
#include "image/atomic_file.h"
#include "image/exceptions.h"
#include "image/png_io.h"
#include "image/read_image.h"

namespace {

constexpr const char* kProgram = "vemo-flow";
constexpr int kMatchingMinimum = 25;  // smaller frames have no matching grid point

double seconds() {
  timeval t;
  gettimeofday(&t, nullptr);
  return t.tv_sec + t.tv_usec * 1e-6;
}

// Tells the factory which backend to use and says when it is not the one
// that was asked for.
std::string selectBackend(DeviceChoice device) {
  flowcore::requestBackend(device == DeviceChoice::Cpu    ? flowcore::BackendRequest::Cpu
                       : device == DeviceChoice::Cuda ? flowcore::BackendRequest::Cuda
                                                      : flowcore::BackendRequest::Auto);
  const std::string chosen = flowcore::chosenBackendName();
  if (device == DeviceChoice::Cuda && chosen != "cuda") {
    const flowcore::CudaProbe& probe = flowcore::probeCudaDevice();
    const std::string why = probe.present ? probe.reason : "no usable CUDA GPU was found";
    std::fprintf(stderr, "%s: warning: %s; running on the %s backend instead\n", kProgram, why.c_str(),
                 chosen.c_str());
  }
  return chosen;
}

void checkFrames(const CTensor<float>& frame1, const CTensor<float>& frame2, const std::string& name1,
                 const std::string& name2, bool quiet) {
  if (frame1.xSize != frame2.xSize || frame1.ySize != frame2.ySize) {
    std::fprintf(stderr, "%s: frames differ in size: %s is %d x %d, %s is %d x %d\n", kProgram, name1.c_str(),
                 frame1.xSize, frame1.ySize, name2.c_str(), frame2.xSize, frame2.ySize);
    throw ETensorIncompatibleSize();
  }
  if (frame1.xSize < 2 || frame1.ySize < 2) {
    std::fprintf(stderr, "%s: frames of %d x %d are too small: at least 2 x 2 pixels are needed\n", kProgram,
                 frame1.xSize, frame1.ySize);
    throw ETensorIncompatibleSize();
  }
  if (!quiet && (frame1.xSize < kMatchingMinimum || frame1.ySize < kMatchingMinimum)) {
    std::fprintf(stderr, "%s: note: frames of %d x %d are below %d x %d: descriptor matching is skipped\n", kProgram,
                 frame1.xSize, frame1.ySize, kMatchingMinimum, kMatchingMinimum);
  }
}

FlowParameters parametersOf(const FlowOptions& o) {
  return FlowParameters{o.alpha, o.beta, o.gamma, o.eta, o.fixedPointIterations, o.solverIterations};
}

void writeFlowAtomically(CTensor<float>& flow, const std::string& name) {
  CAtomicFile output(name);
  COpticFlow::writeMiddlebury(flow, output.tempPath());
  output.commit();
}

// Fails before any computing when an output's directory cannot take files.
void checkOutputDirectory(const std::string& name) {
  if (name.empty()) return;
  const size_t slash = name.find_last_of('/');
  const std::string dir = slash == std::string::npos ? "." : (slash == 0 ? "/" : name.substr(0, slash));
  if (access(dir.c_str(), W_OK) != 0) {
    std::fprintf(stderr, "%s: cannot write %s: directory %s is missing or not writable\n", kProgram, name.c_str(),
                 dir.c_str());
    throw EFileNotFound();
  }
}

struct PairOutputs {
  std::string flow, viz, backward, occlusions;
};

// Computes one pair and writes its outputs; everything is computed before
// the first file is written. One backend serves every pair of a run, so its
// buffers are reused.
void runPair(flowcore::Backend& backend, const CTensor<float>& frame1, const CTensor<float>& frame2, const FlowOptions& o,
             const PairOutputs& out) {
  PairFlow flows = computePairFlow(backend, frame1, frame2, o.sigma, parametersOf(o), !out.backward.empty(),
                                   !out.occlusions.empty());
  CTensor<float> picture;
  if (!out.viz.empty()) picture = flowPicture(flows.forward, o.maxFlow, o.legend);

  writeFlowAtomically(flows.forward, out.flow);
  if (!out.backward.empty()) writeFlowAtomically(flows.backward, out.backward);
  if (!out.viz.empty()) NImageIO::writePNG(picture, out.viz.c_str());
  if (!out.occlusions.empty()) NImageIO::writePNG(flows.occlusions, out.occlusions.c_str());
}

int runSinglePair(const FlowOptions& o, const std::string& backend) {
  const PairOutputs out{o.output, o.viz, o.backward, o.occlusions};
  for (const std::string& name : {out.flow, out.viz, out.backward, out.occlusions}) checkOutputDirectory(name);
  CTensor<float> frame1, frame2;
  NImageIO::readImage(o.frame1, frame1);
  NImageIO::readImage(o.frame2, frame2);
  checkFrames(frame1, frame2, o.frame1, o.frame2, o.quiet);
  const double start = seconds();
  std::unique_ptr<flowcore::Backend> engine = flowcore::makeBackend();
  runPair(*engine, frame1, frame2, o, out);
  if (!o.quiet) {
    std::printf("Wrote %s (%d x %d, %.2f s on the %s backend)\n", o.output.c_str(), frame1.xSize, frame1.ySize,
                seconds() - start, backend.c_str());
  }
  return 0;
}

int runSequence(const FlowOptions& o) {
  std::string error;
  for (const std::string& pattern : {o.sequence, o.output, o.viz, o.backward, o.occlusions}) {
    if (!pattern.empty() && !checkFramePattern(pattern, error)) {
      std::fprintf(stderr, "%s: %s\n", kProgram, error.c_str());
      return 2;
    }
  }
  const std::vector<int> frames = findFrames(o.sequence, o.first);
  if (frames.size() < 2) {
    std::fprintf(stderr, "%s: the sequence %s needs at least two consecutive frames, found %zu\n", kProgram,
                 o.sequence.c_str(), frames.size());
    return 1;
  }
  const auto nameOf = [](const std::string& pattern, int n) {
    return pattern.empty() ? std::string() : frameName(pattern, n);
  };
  for (const std::string& pattern : {o.output, o.viz, o.backward, o.occlusions}) {
    checkOutputDirectory(nameOf(pattern, frames[0]));
  }
  const int pairs = static_cast<int>(frames.size()) - 1;
  CProgress progress(stderr, pairs, isatty(STDERR_FILENO) == 1);
  std::unique_ptr<flowcore::Backend> engine = flowcore::makeBackend();
  CTensor<float> previous;
  std::string previousName = frameName(o.sequence, frames[0]);
  NImageIO::readImage(previousName, previous);
  if (!o.quiet) progress.update(0);
  for (int p = 0; p < pairs; ++p) {
    const std::string nextName = frameName(o.sequence, frames[p + 1]);
    CTensor<float> next;
    NImageIO::readImage(nextName, next);
    checkFrames(previous, next, previousName, nextName, o.quiet || p > 0);
    const int n = frames[p];
    runPair(*engine, previous, next, o, PairOutputs{nameOf(o.output, n), nameOf(o.viz, n), nameOf(o.backward, n),
                                           nameOf(o.occlusions, n)});
    if (!o.quiet) progress.update(p + 1);
    previous = next;
    previousName = nextName;
  }
  if (!o.quiet) progress.finish();
  return 0;
}

}  // namespace

int runFlowProgram(int argc, char** argv) {
  FlowOptions options;
  std::string error;
  if (!parseFlowOptions(argc, argv, options, error)) {
    std::fprintf(stderr, "%s: %s\nRun '%s --help' for usage.\n", kProgram, error.c_str(), kProgram);
    return 2;
  }
  if (options.help) {
    std::fputs(flowUsage(kProgram).c_str(), stdout);
    return 0;
  }
  if (options.threads > 0) omp_set_num_threads(options.threads);
  // The pipeline's stage lines on standard output only with --timings.
  flowcore::setStageLines(options.timings);
  const std::string backend = selectBackend(options.device);
  return options.sequence.empty() ? runSinglePair(options, backend) : runSequence(options);
}
