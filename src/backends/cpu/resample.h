// Pyramid resampling of host planes laid out like device images.
#pragma once

namespace vemo::cpu {

// Area-weighted reduction of one plane (height x width, pitch) into `out`
// (newheight x newwidth, newpitch). With `conf` (same layout as `arr`), cells
// are weighted by their positive confidence and footprints without any give
// NaN; with conf == nullptr it is the plain area average.
void downsample(const float* arr, int height, int width, int pitch,
                float* out, int newheight, int newwidth, int newpitch, const float* conf);

// The reduction of three planes by the same `conf` (or none), in one pass:
// out[k] is what downsample(in[k], ..., out[k], ..., conf) gives.
void downsample3(const float* const in[3], float* const out[3], int height, int width, int pitch, int newheight,
                 int newwidth, int newpitch, const float* conf);

// Bilinear enlargement: outarray (oheight x owidth, opitch) samples the
// source (height x width, pitch) at (x / scaleFactor, y / scaleFactor), edge
// clamped. Values are not rescaled.
void gInterpolate(float* outarray, int oheight, int owidth, int opitch,
                  const float* src, int height, int width, int pitch, float scaleFactor);

}  // namespace vemo::cpu
