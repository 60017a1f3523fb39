// Element-wise operations over the height x width pixels of pitched planes;
// the padding between width and pitch is never touched.
#pragma once

namespace vemo::cpu {

void Scale(float* arr, int height, int width, int pitch, float scale);       // arr *= scale
void setValue(float* a, int height, int width, int pitch, float val);        // a = val
void Add(float* acc, const float* b, int height, int width, int pitch);      // acc += b
void Diff(float* c, const float* a, const float* b, int height, int width, int pitch);  // c = a - b

}  // namespace vemo::cpu
