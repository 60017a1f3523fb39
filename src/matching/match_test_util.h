// Test helpers of the matching stage: pitched planes like device images and
// textured frames that the descriptors can lock onto.
#pragma once

#include "backends/cpu/plane_test_util.h"
#include "image/synthetic.h"

namespace vemo::match_testing {

// Pitched planes whose padding holds NaN, so that a stage reading it as data
// shows up.
using Frame = testing_util::Planes;

// Frame whose pixel (x, y) shows the smooth multi-scale texture of `seed` at
// (x - shiftX, y - shiftY): the content of an unshifted frame moved by
// (shiftX, shiftY), exactly.
inline Frame texturedFrame(int h, int w, int p, unsigned seed, int shiftX = 0, int shiftY = 0) {
  const NSynthetic::CTexture texture(seed);
  Frame f(h, w, p, 3);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) f.at(x, y, c) = (float)texture.at(x - shiftX, y - shiftY, c);
  return f;
}

}  // namespace vemo::match_testing
