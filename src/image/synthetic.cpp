#include "image/synthetic.h"

#include <cmath>
#include <cstdio>
#include <random>

#include "common/diagnostics.h"
#include "image/exceptions.h"

namespace NSynthetic {

namespace {
const double kTwoPi = 6.283185307179586;

// Uniform in [0, 1) from the raw generator output, identical on every
// standard library (distributions are not).
double uniform(std::mt19937& rng) { return rng() / 4294967296.0; }
}  // namespace

CTexture::CTexture(uint32_t seed) {
  std::mt19937 rng(seed);
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < kWaves; ++i) {
      const double angle = kTwoPi * uniform(rng);
      const double wavelength = 6.0 + 34.0 * uniform(rng);
      const double phase = kTwoPi * uniform(rng);
      const double amplitude = 0.5 + uniform(rng);
      const double k = kTwoPi / wavelength;
      waves_[c].push_back({k * std::cos(angle), k * std::sin(angle), phase, amplitude});
    }
  }
}

double CTexture::at(double x, double y, int c) const {
  double sum = 0.0, norm = 0.0;
  for (const Wave& w : waves_[c]) {
    sum += w.amplitude * std::sin(w.kx * x + w.ky * y + w.phase);
    norm += w.amplitude;
  }
  // sum / norm lies in [-1, 1]; map to [0, 255].
  return 127.5 * (1.0 + sum / norm);
}

CTensor<float> renderShifted(const CTexture& texture, int width, int height, double dx,
                             double dy) {
  CTensor<float> image(width, height, 3);
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        image(x, y, c) = static_cast<float>(texture.at(x - dx, y - dy, c));
  return image;
}

void makeShiftedPair(int width, int height, float dx, float dy, uint32_t seed,
                     CTensor<float>& frame1, CTensor<float>& frame2, CTensor<float>& flow) {
  if (width <= 0 || height <= 0) {
    vemo::reportf(stderr,
                 "Exception ETensorIncompatibleSize: a synthetic pair needs a positive size, got "
                 "%d x %d\n",
                 width, height);
    throw ETensorIncompatibleSize();
  }
  const CTexture texture(seed);
  frame1 = renderShifted(texture, width, height, 0.0, 0.0);
  frame2 = renderShifted(texture, width, height, dx, dy);
  CTensor<float> truth(width, height, 2);
  for (size_t i = 0; i < truth.planeSize(); ++i) {
    truth.data[i] = dx;
    truth.data[truth.planeSize() + i] = dy;
  }
  flow = truth;
}

}  // namespace NSynthetic
