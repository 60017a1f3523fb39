// Small flow fields for tests.
#pragma once

#include "image/tensor.h"

namespace vemotest {

// A width x height x 2 field with the same vector (u, v) everywhere.
inline CTensor<float> constantFlow(int width, int height, float u, float v) {
  CTensor<float> flow(width, height, 2);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) flow(x, y, 0) = u, flow(x, y, 1) = v;
  return flow;
}

}  // namespace vemotest
