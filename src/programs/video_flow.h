// vemo-flow --video: the flow between frames of a video file.
#pragma once

#include <string>

#include "programs/flow_options.h"
#include "vemo/engine.hpp"

// Decodes the video once, frame after frame, and computes the pairs
// (start, start + step), (start + step, start + 2 step), ... for --frames
// frames or up to the end; writes each pair's outputs (patterns numbered
// by the pair's first frame, frames counting from 0) and, with --viz-video,
// the colour-coded flow as a video at the clip's frame rate with one scale
// throughout. A clip whose frames change size, a file that is not a video
// or that breaks off ends the run with a message and status 1; the outputs
// of the pairs before stay complete, and so does the flow video, which
// then holds those pairs. The Engine computes every pair. Returns the exit
// status.
int runVideoFlow(const FlowOptions& options, vemo::Engine& engine);
