#include "programs/flow_command.h"

#include <omp.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "common/diagnostics.h"
#include "common/stage_lines.h"
#include "common/cancel.h"
#include "programs/flow_options.h"
#include "programs/interruption.h"
#include "programs/pair_run.h"
#include "programs/sequence.h"
#include "programs/video_flow.h"
#include "image/read_image.h"

namespace {

int runSinglePair(const FlowOptions& o, vemo::Engine& engine) {
  const PairOutputs out{o.output, o.viz, o.backward, o.occlusions};
  checkReadable(o.frame1);
  checkReadable(o.frame2);
  prepareOutputs(out, o);
  CTensor<float> frame1, frame2;
  NImageIO::readImage(o.frame1, frame1);
  NImageIO::readImage(o.frame2, frame2);
  checkFrames(frame1, frame2, o.frame1, o.frame2, o.quiet);
  const double start = wallSeconds();
  runPair(engine, frame1, frame2, o, out, o.frame1, o.frame2);
  if (!o.quiet) {
    std::printf("Wrote %s (%d x %d, %.2f s on the %s backend)\n", listed(out.names()).c_str(), frame1.xSize,
                frame1.ySize, wallSeconds() - start, engine.device().c_str());
  }
  return 0;
}

int runSequence(const FlowOptions& o, vemo::Engine& engine) {
  std::string error;
  for (const std::string& pattern : {o.sequence, o.output, o.viz, o.backward, o.occlusions}) {
    if (!pattern.empty() && !checkFramePattern(pattern, error)) {
      std::fprintf(stderr, "%s: %s\n", kFlowProgram, error.c_str());
      return 2;
    }
  }
  const std::vector<int> frames = findFrames(o.sequence, o.first);
  if (frames.size() < 2) {
    std::fprintf(stderr, "%s: the sequence %s needs at least two consecutive frames, found %zu\n", kFlowProgram,
                 o.sequence.c_str(), frames.size());
    return 1;
  }
  const auto outputsOf = [&o](int n) {
    const auto nameOf = [n](const std::string& pattern) { return pattern.empty() ? pattern : frameName(pattern, n); };
    return PairOutputs{nameOf(o.output), nameOf(o.viz), nameOf(o.backward), nameOf(o.occlusions)};
  };
  prepareOutputs(outputsOf(frames[0]), o);
  const int pairs = static_cast<int>(frames.size()) - 1;
  const double start = wallSeconds();
  CProgress progress(stderr, pairs, isatty(STDERR_FILENO) == 1);
  CInterruption interruption;
  PairCounts counts;
  CTensor<float> previous;
  std::string previousName = frameName(o.sequence, frames[0]);
  NImageIO::readImage(previousName, previous);
  if (!o.quiet) progress.update(0);
  try {
    for (int p = 0; p < pairs; ++p) {
      vemo::cancellationPoint();
      const std::string nextName = frameName(o.sequence, frames[p + 1]);
      CTensor<float> next;
      NImageIO::readImage(nextName, next);
      checkFrames(previous, next, previousName, nextName, o.quiet || p > 0);
      const PairOutputs out = outputsOf(frames[p]);
      if (o.resume && out.complete(previous.xSize, previous.ySize)) {
        ++counts.kept;
      } else {
        runPair(engine, previous, next, o, out, previousName, nextName);
        ++counts.computed;
      }
      if (!o.quiet) progress.update(p + 1);
      previous = next;
      previousName = nextName;
    }
  } catch (const vemo::Cancelled&) {
  }
  if (!o.quiet) progress.finish();
  if (interruption.requested()) {
    std::fprintf(stderr, "%s: %s\n", kFlowProgram, interruptedLine(counts, pairs, "").c_str());
    return interruption.exitStatus();
  }
  if (!o.quiet) {
    std::printf("Wrote %s (%s of %d x %d, %.2f s on the %s backend%s)\n",
                listed(outputRanges(outputsOf(frames.front()), outputsOf(frames[pairs - 1]))).c_str(),
                pairCount(pairs).c_str(), previous.xSize, previous.ySize, wallSeconds() - start, engine.device().c_str(),
                resumedCounts(counts, o.resume).c_str());
  }
  return 0;
}

}  // namespace

int runFlowProgram(int argc, char** argv) {
  // The library's messages name the program too.
  vemo::setMessagePrefix("vemo-flow: ");
  FlowOptions options;
  std::string error;
  if (!parseFlowOptions(argc, argv, options, error)) {
    std::fprintf(stderr, "%s: %s\nRun '%s --help' for usage.\n", kFlowProgram, error.c_str(), kFlowProgram);
    return 2;
  }
  if (options.help) {
    std::fputs(flowUsage(kFlowProgram).c_str(), stdout);
    return 0;
  }
  if (options.threads > 0) omp_set_num_threads(options.threads);
  // The pipeline's own stage lines are the vemo program's; --timings prints
  // labelled ones instead (pair_run).
  vemo::setStageLines(false);
  vemo::Engine engine = openEngine(options);
  if (!options.video.empty()) return runVideoFlow(options, engine);
  return options.sequence.empty() ? runSinglePair(options, engine) : runSequence(options, engine);
}
