// The descriptor-matching stage of a flow run.
//
// Builds the HOG fields of both frames, matches a 4-pixel grid of frame-1
// points forward into frame 2 and back, and writes three frame-1 planes:
// u and v, the integer displacement of every consistent match, and
// Confidence, its weight (0 where there is none). The variational solver
// reads them as its match term.
#pragma once

#include <sys/time.h>

#include "matching/match_settings.h"

namespace vemo {

class Backend;
class MatchingStages;

// Grid of match points: x = 12, 12 + step, ... < width - 12, likewise y
// (step 4 by default).
constexpr int kGridMargin = 12;

// Number of grid columns for a frame dimension: ceil((size - 24) / step), or
// 0 for frames of 24 pixels or less, which have no grid points.
int matchGridCount(int size, int step = MatchSettings{}.gridStep);

// Image1, Image2: frames of nChannels planes in `backend`'s memory; u, v and
// Confidence: planes of the same height, width and pitch, cleared here. A
// frame with fewer than three channels (the colour test reads three) or of
// 24 pixels or less in either dimension gets no matches: all three planes are
// left at zero.
//
// `settings` sets the grid step and the search radius; a step below 1 or a
// radius outside 1 .. 80 is refused with BackendError.
//
// Prints "nx ny width height", then the accumulated HOG creation and
// matching times, on standard output.
void gCreateAndMatchHOG(Backend& backend, MatchingStages& stages, const float* Image1, const float* Image2,
                        float* u, float* v, float* Confidence, int height, int width, int pitch, int nChannels,
                        const MatchSettings& settings = {});

// The same with the matching executor that belongs to `backend`.
void gCreateAndMatchHOG(Backend& backend, const float* Image1, const float* Image2, float* u, float* v,
                        float* Confidence, int height, int width, int pitch, int nChannels,
                        const MatchSettings& settings = {});

}  // namespace vemo

// Stretches of the matching stage, in milliseconds, accumulated per thread
// over every call and never reset: HOG creation, and cornerness, energies and matching.
extern thread_local timeval start_hogc, finish_hogc, start_hogmatch, finish_hogmatch;
extern thread_local double timer_hogc, timer_hogmatch;
