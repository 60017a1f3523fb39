// Element-wise updates of one pixel of a pitched plane.
#pragma once

#include "common/hd.h"

namespace vemo {

VEMO_INLINE void scaleAt(float* arr, int pitch, float scale, int x, int y) { arr[y * pitch + x] = arr[y * pitch + x] * scale; }

VEMO_INLINE void setValueAt(float* a, int pitch, float val, int x, int y) { a[y * pitch + x] = val; }

VEMO_INLINE void addAt(float* acc, const float* b, int pitch, int x, int y) { acc[y * pitch + x] = acc[y * pitch + x] + b[y * pitch + x]; }

VEMO_INLINE void diffAt(float* c, const float* a, const float* b, int pitch, int x, int y) { c[y * pitch + x] = a[y * pitch + x] - b[y * pitch + x]; }

}  // namespace vemo
