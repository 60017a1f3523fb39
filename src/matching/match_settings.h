// How densely, how far and at which resolution the descriptor matching
// searches. The defaults are the method's own: the full frames, a point every
// 4 pixels, each searched within +-80 pixels.
#pragma once

namespace vemo {

// The largest reduction of the frames before matching.
constexpr int kMaxMatchDownscale = 8;

struct MatchSettings {
  int gridStep = 4;   // pixels between neighbouring grid points, in x and in y
  int radius = 80;    // half-width of the square search window, 1 to 80
  int downscale = 1;  // frames reduced by this factor (1 to 8) before matching;
                      // step and radius count pixels of the reduced frames
};

}  // namespace vemo
