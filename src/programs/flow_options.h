// Named options of the vemo-flow program and their parsing.
#pragma once

#include <string>

#include "backends/backend_factory.h"

struct FlowOptions {
  std::string frame1, frame2;  // the two frames (pair mode)
  std::string sequence;        // frame pattern with one %d conversion (sequence mode)
  std::string video;           // video file (video mode)
  std::string output;          // -o: flow file, or a pattern in sequence and video mode
  std::string viz;             // colour-coded flow picture (PNG or JPEG)
  std::string backward;        // backward flow file
  std::string occlusions;      // forward-backward consistency mask (PNG or JPEG)
  std::string vizVideo;        // colour-coded flow as a video (video mode)
  std::string preset = "default";  // --preset: the values the method starts from
  // The method's seven values: after parsing, the preset's, with the options
  // given explicitly over them (the preset's further choices follow its name).
  float sigma = 0.8f;
  float alpha = 30.0f;
  float beta = 300.0f;
  float gamma = 5.0f;
  float eta = 0.95f;
  int fixedPointIterations = 5;
  int solverIterations = 10;
  float maxFlow = 0.0f;  // picture scale in pixels; 0: the largest vector of the field
  bool legend = false;
  vemo::DeviceRequest device;  // --device auto, cpu, cuda or cuda:N
  int threads = 0;  // 0: OpenMP's default
  int first = -1;   // first frame number of a sequence; -1: 0 or 1, whichever exists
  int start = 0;    // first video frame used (frames count from 0)
  int frames = 0;   // video frames used; 0: up to the end
  int step = 1;     // video frames from one used frame to the next
  bool resume = false;  // keep the complete outputs of earlier runs (sequence and video mode)
  bool quiet = false;
  bool timings = false;
  bool help = false;
};

// Parses argv[1..argc-1]. Options take their value as the next argument or
// after '=' (--alpha=20). The method's options override the preset's values
// wherever they stand. Returns false with a one-line reason in error for
// an unknown option, a missing or malformed value, a value out of range, a
// picture name without a .png or .jpg extension, a wrong number of frames,
// options of another mode, or no output at all; --help stops parsing and
// returns true with options.help set.
bool parseFlowOptions(int argc, const char* const* argv, FlowOptions& options, std::string& error);

// The --help text.
std::string flowUsage(const char* program);
