// Backward warping of frame 2 by the flow (u, v), with a 0/1 in-image mask.
#pragma once

#include "common/hd.h"
#include "pixel/sample.h"

namespace vemo {

// Whether the displaced position (X, Y) lies in the image: the closed range
// [0, width - 1] x [0, height - 1] (the bounds themselves are inside). A
// non-finite position (NaN flow) is outside.
VEMO_INLINE bool warpInside(float X, float Y, int height, int width) {
  return X >= 0.0f && X <= (float)(width - 1) && Y >= 0.0f && Y <= (float)(height - 1);
}

// Warps pixel (x, y) of all nChan planes of `src` (frame 2; planes stacked at
// pitch * height) by (u, v). Inside the image: bilinear sample of src at
// (x + u, y + v), the planes being read as one tall image of nChan * height
// rows (clamped only at its ends; since Y <= height - 1 a neighbour row from
// the next plane only ever gets weight 0), confidence = 1. Outside: frame 1's
// own value (`First`), so that the brightness difference is zero, and
// confidence = 0.
VEMO_INLINE void warpMotionAt(float* outarray, const float* src, const float* First, float* confidence,
                              int height, int width, int pitch, const float* u, const float* v,
                              int nChan, int x, int y) {
  const int idx = y * pitch + x;
  const int plane = pitch * height;
  const float X = (float)x + u[idx];
  const float Y = (float)y + v[idx];
  if (!warpInside(X, Y, height, width)) {
    confidence[idx] = 0.0f;
    for (int c = 0; c < nChan; ++c) outarray[idx + c * plane] = First[idx + c * plane];
    return;
  }
  confidence[idx] = 1.0f;
  const TexAxis columns = texAxis(texCentre(X), width);  // the same for every plane
  for (int c = 0; c < nChan; ++c) {
    const float ty = texCentre((float)(c * height) + Y);
    outarray[idx + c * plane] = texBlend(src, pitch, columns, texAxis(ty, nChan * height));
  }
}

}  // namespace vemo
