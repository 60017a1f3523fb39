// One frame pair of a vemo-flow run, whatever the frames come from (two
// files, a numbered sequence, a video): the flows, pictures and masks asked
// for, computed first and then written, each file atomically.
#pragma once

#include <string>
#include <vector>

#include "programs/flow_options.h"
#include "image/tensor.h"

#include "vemo/engine.hpp"

constexpr const char* kFlowProgram = "vemo-flow";

// The files of one pair; an empty name is an output not asked for.
struct PairOutputs {
  std::string flow, viz, backward, occlusions;
  // The names asked for, in the order they are written.
  std::vector<std::string> names() const;
  // Whether every output asked for is on disk and whole for frames of
  // width x height: flow files with the tag, these sizes and the length
  // they imply, pictures present (every output is written atomically).
  bool complete(int width, int height) const;
};

// Pairs of a run whose outputs were kept (--resume) and computed.
struct PairCounts {
  long long kept = 0, computed = 0;
  long long done() const { return kept + computed; }
};

// The line of a run stopped by a signal (without the program's name): how
// far it got of total pairs (below 0: unknown), what holds the pairs done
// (video, when one was written) and how to go on.
std::string interruptedLine(const PairCounts& counts, long long total, const std::string& video);

// ", 3 complete pairs kept, 5 computed" after the closing line's counts
// with --resume; "" without.
std::string resumedCounts(const PairCounts& counts, bool resume);

// The Engine of a run: the device --device asks for with --threads; a CUDA
// device that cannot be used is named in a warning and the CPU runs
// instead, as the Python module and the batch do.
vemo::Engine openEngine(const FlowOptions& options);

// Refuses frames of different sizes or below 2 x 2 (message naming both
// frames, ETensorIncompatibleSize); notes frames too small for matching
// unless quiet.
void checkFrames(const CTensor<float>& frame1, const CTensor<float>& frame2, const std::string& name1,
                 const std::string& name2, bool quiet);

// Before any computing: refuses (message, EFileNotFound) an output that
// names a folder, makes the folders an output's path needs and refuses one
// whose folder cannot take files. `example` is a file name to suggest for a
// folder ("flow.flo"). An empty name is no output.
void prepareOutput(const std::string& name, const char* example);

// prepareOutput for every output of the first pair, then one warning per
// flow output (-o, --backward) whose name does not end in .flo.
void prepareOutputs(const PairOutputs& first, const FlowOptions& options);

// Refuses, before any decoding, a frame file that cannot be read or is a
// folder (message naming it, EFileNotFound).
void checkReadable(const std::string& frame);

// Computes the pair (frame1 to frame2, and back when --backward or
// --occlusions ask for it) on the Engine and writes its outputs. With
// --timings the stage times of each flow are printed under a line naming it
// (name1 -> name2), each flow's own times. One Engine serves every pair of a
// run, so its buffers are reused. Returns the forward flow.
CTensor<float> runPair(vemo::Engine& engine, const CTensor<float>& frame1, const CTensor<float>& frame2,
                       const FlowOptions& options, const PairOutputs& outputs, const std::string& name1,
                       const std::string& name2);

// The outputs of a run of pairs for its closing line: "a" where first and
// last pair write the same name, else "a to b".
std::vector<std::string> outputRanges(const PairOutputs& first, const PairOutputs& last);

// "1 pair", "2 pairs".
std::string pairCount(long long pairs);

// Names joined by ", ".
std::string listed(const std::vector<std::string>& names);

// Wall-clock seconds, for the closing lines.
double wallSeconds();
