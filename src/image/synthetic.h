// Synthetic frame pairs with exactly known flow, for tests and demos.
//
// The texture is a continuous function: per channel a sum of sinusoids with
// random orientation, wavelength (6 to 40 pixels) and phase, drawn from a
// seeded Mersenne twister, so it is smooth, has structure at several scales
// and can be evaluated at any real position. Frame 2 is the same function
// shifted by (dx, dy): frame2(x + dx, y + dy) = frame1(x, y) exactly, with no
// interpolation error and no border effects, so the flow of frame 1 towards
// frame 2 is (dx, dy) at every pixel.
#pragma once

#include <cstdint>
#include <vector>

#include "image/tensor.h"

namespace NSynthetic {

class CTexture {
 public:
  explicit CTexture(uint32_t seed);
  // Value of channel c (0..2) at real position (x, y), in [0, 255].
  double at(double x, double y, int c) const;

 private:
  struct Wave {
    double kx, ky, phase, amplitude;
  };
  static const int kWaves = 16;
  std::vector<Wave> waves_[3];
};

// Samples the texture on the pixel grid shifted by (-dx, -dy): the image of
// a scene that moved by (dx, dy). dx = dy = 0 gives frame 1.
CTensor<float> renderShifted(const CTexture& texture, int width, int height, double dx,
                             double dy);

// A frame pair of width x height x 3 and its ground truth flow
// (width x height x 2, constant (dx, dy)). Sizes must be positive;
// otherwise prints a message and throws ETensorIncompatibleSize.
void makeShiftedPair(int width, int height, float dx, float dy, uint32_t seed,
                     CTensor<float>& frame1, CTensor<float>& frame2, CTensor<float>& flow);

}  // namespace NSynthetic
