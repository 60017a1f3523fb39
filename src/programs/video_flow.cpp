#include "programs/video_flow.h"

#include <unistd.h>

#include <cstdio>
#include <memory>

#include "common/cancel.h"
#include "driver/flow_picture.h"
#include "programs/interruption.h"
#include "driver/optic_flow.h"
#include "programs/pair_run.h"
#include "programs/sequence.h"
#include "video/video_error.h"
#include "video/video_reader.h"
#include "video/video_writer.h"

namespace {

// Rate of the flow video when the clip does not state its own.
constexpr VideoRate kFallbackRate{25, 1};

std::string frameLabel(long long n) { return "frame " + std::to_string(n); }

// The colour-coded flow video: opened at the first pair, whose flow fixes
// the scale unless --max-flow does.
class CFlowVideo {
 public:
  CFlowVideo(const FlowOptions& o, VideoRate rate) : o_(o), rate_(rate) {}

  // Adds the picture of a pair whose outputs are written; not cancelled
  // half way, so that the video holds every pair on disk.
  void add(const CTensor<float>& flow) {
    if (o_.vizVideo.empty()) return;
    const vemo::CancelScope uninterrupted(nullptr);
    if (!writer_) {
      const bool chosen = o_.maxFlow > 0.0f;
      scale_ = chosen ? o_.maxFlow : longestVector(flow);
      if (!(scale_ > 0.0f)) scale_ = 1.0f;  // a still first pair: any scale shows black
      const CTensor<float> first = flowPicture(flow, scale_, o_.legend);
      writer_ = std::make_unique<CVideoWriter>(o_.vizVideo, first.xSize, first.ySize, rate_);
      if (!o_.quiet) {
        std::printf("%s: %s, %.4g fps, full brightness at %.4g px (%s)\n", o_.vizVideo.c_str(),
                    writer_->codecDescription().c_str(), rate_.perSecond(), scale_,
                    chosen ? "--max-flow" : "the longest vector of the first pair");
        std::fflush(stdout);
      }
      writer_->write(first);
      return;
    }
    writer_->write(flowPicture(flow, scale_, o_.legend));
  }

  // Completes the file; returns its name for the closing line, or "" when
  // no video was asked for or no pair was added.
  std::string finish() {
    if (!writer_) return std::string();
    writer_->finish();
    return o_.vizVideo;
  }

  // finish() for a run that ends early: a failure to complete the file is
  // reported and gives "".
  std::string finishEarly() {
    try {
      return finish();
    } catch (const EVideoError& late) {
      std::fprintf(stderr, "%s: %s\n", kFlowProgram, late.what());
      return std::string();
    }
  }

 private:
  const FlowOptions& o_;
  VideoRate rate_;
  float scale_ = 0.0f;
  std::unique_ptr<CVideoWriter> writer_;
};

// Advances the reader by step frames (decoding every one of them, so that
// inter-coded video decodes correctly) and converts the last into frame.
bool advance(CVideoReader& reader, int step, CTensor<float>& frame) {
  for (int k = 1; k < step; ++k)
    if (!reader.skip()) return false;
  return reader.read(frame);
}

}  // namespace

int runVideoFlow(const FlowOptions& o, vemo::Engine& engine) {
  std::string error;
  for (const std::string& pattern : {o.output, o.viz, o.backward, o.occlusions}) {
    if (!pattern.empty() && !checkFramePattern(pattern, error)) {
      std::fprintf(stderr, "%s: %s (with --video, outputs are numbered by frame)\n", kFlowProgram, error.c_str());
      return 2;
    }
  }
  const auto outputsOf = [&o](long long n) {
    const auto nameOf = [n](const std::string& pattern) {
      return pattern.empty() ? pattern : frameName(pattern, static_cast<int>(n));
    };
    return PairOutputs{nameOf(o.output), nameOf(o.viz), nameOf(o.backward), nameOf(o.occlusions)};
  };
  checkReadable(o.video);
  prepareOutputs(outputsOf(o.start), o);
  if (!o.vizVideo.empty()) {
    prepareOutput(o.vizVideo, "flow.mp4");
    CVideoWriter::checkName(o.vizVideo);
  }

  CVideoReader reader(o.video);
  VideoRate rate = reader.rate();
  if (!rate.known() && !o.vizVideo.empty()) {
    rate = kFallbackRate;
    std::fprintf(stderr, "%s: note: %s states no frame rate; %s is written at %d fps\n", kFlowProgram,
                 o.video.c_str(), o.vizVideo.c_str(), rate.num);
  }
  for (int n = 0; n < o.start; ++n) {
    if (!reader.skip()) {
      std::fprintf(stderr, "%s: %s has %d frames: --start %d is past its end\n", kFlowProgram, o.video.c_str(), n,
                   o.start);
      return 1;
    }
  }
  // Pairs the clip holds (when it says how many frames it has) and pairs
  // --frames asks for; the progress bar counts the smaller.
  const long long announced = reader.frameCount();
  long long total = announced > o.start ? (announced - 1 - o.start) / o.step : -1;
  if (o.frames > 0 && (total < 0 || o.frames - 1 < total)) total = o.frames - 1;

  const double start = wallSeconds();
  CFlowVideo flowVideo(o, rate);
  CProgress progress(stderr, static_cast<int>(total), isatty(STDERR_FILENO) == 1);
  CInterruption interruption;
  PairCounts counts;
  CTensor<float> previous, next;
  long long pairs = 0;
  try {
    if (!reader.read(previous)) {
      if (o.start == 0) {
        std::fprintf(stderr, "%s: %s holds no frame\n", kFlowProgram, o.video.c_str());
      } else {
        std::fprintf(stderr, "%s: %s has %d frames: --start %d is past its end\n", kFlowProgram, o.video.c_str(),
                     o.start, o.start);
      }
      return 1;
    }
    if (!o.quiet) progress.update(0);
    while ((o.frames == 0 || pairs < o.frames - 1) && advance(reader, o.step, next)) {
      vemo::cancellationPoint();
      const long long n1 = o.start + pairs * o.step, n2 = n1 + o.step;
      if (next.xSize != previous.xSize || next.ySize != previous.ySize) {
        throw EVideoError(o.video + ": " + frameLabel(n2) + " is " + std::to_string(next.xSize) + " x " +
                          std::to_string(next.ySize) + " but " + frameLabel(n1) + " is " +
                          std::to_string(previous.xSize) + " x " + std::to_string(previous.ySize) +
                          ": the frames of a clip must keep one size");
      }
      checkFrames(previous, next, frameLabel(n1), frameLabel(n2), o.quiet || pairs > 0);
      const PairOutputs out = outputsOf(n1);
      // A kept pair gives the flow video its flow from the file; without
      // one (-o) the pair is computed again.
      if (o.resume && out.complete(previous.xSize, previous.ySize) && (o.vizVideo.empty() || !out.flow.empty())) {
        if (!o.vizVideo.empty()) {
          CTensor<float> kept;
          COpticFlow::readMiddlebury(out.flow.c_str(), kept);
          flowVideo.add(kept);
        }
        ++counts.kept;
      } else {
        flowVideo.add(runPair(engine, previous, next, o, out, frameLabel(n1), frameLabel(n2)));
        ++counts.computed;
      }
      ++pairs;
      if (!o.quiet) progress.update(static_cast<int>(pairs));
      std::swap(previous.data, next.data);  // same size: the planes change places, nothing is copied
    }
  } catch (const vemo::Cancelled&) {
  } catch (const EVideoError& e) {
    if (!o.quiet) progress.finish();
    std::fprintf(stderr, "%s: %s\n", kFlowProgram, e.what());
    if (pairs > 0) {
      const std::string video = flowVideo.finishEarly();
      std::fprintf(stderr, "%s: the outputs of the %s before are complete%s\n", kFlowProgram,
                   pairCount(pairs).c_str(), video.empty() ? "" : ("; " + o.vizVideo + " holds them").c_str());
    }
    return 1;
  }
  if (interruption.requested()) {
    if (!o.quiet) progress.finish();
    const std::string video = flowVideo.finishEarly();
    std::fprintf(stderr, "%s: %s\n", kFlowProgram, interruptedLine(counts, total, video).c_str());
    return interruption.exitStatus();
  }
  if (pairs == 0) {
    if (!o.quiet) progress.finish();
    std::fprintf(stderr, "%s: %s has no frame after frame %d: at least two frames are needed\n", kFlowProgram,
                 o.video.c_str(), o.start);
    return 1;
  }
  const std::string video = flowVideo.finish();
  if (!o.quiet) {
    progress.finish();
    std::vector<std::string> written = outputRanges(outputsOf(o.start), outputsOf(o.start + (pairs - 1) * o.step));
    if (!video.empty()) written.push_back(video);
    std::printf("Wrote %s (%s of %d x %d, %.2f s on the %s backend%s)\n", listed(written).c_str(),
                pairCount(pairs).c_str(), previous.xSize, previous.ySize, wallSeconds() - start, engine.device().c_str(),
                resumedCounts(counts, o.resume).c_str());
  }
  return 0;
}
