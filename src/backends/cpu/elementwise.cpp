#include "backends/cpu/elementwise.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/elementwise.h"

namespace flowcore::cpu {

VEMO_CPU_CLONES void Scale(float* arr, int height, int width, int pitch, float scale) {
  VEMO_FOR_EACH_PIXEL(height, width, x, y) { scaleAt(arr, pitch, scale, x, y); }
}

VEMO_CPU_CLONES void setValue(float* a, int height, int width, int pitch, float val) {
  VEMO_FOR_EACH_PIXEL(height, width, x, y) { setValueAt(a, pitch, val, x, y); }
}

VEMO_CPU_CLONES void Add(float* acc, const float* b, int height, int width, int pitch) {
  VEMO_FOR_EACH_PIXEL(height, width, x, y) { addAt(acc, b, pitch, x, y); }
}

VEMO_CPU_CLONES void Diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
  VEMO_FOR_EACH_PIXEL(height, width, x, y) { diffAt(c, a, b, pitch, x, y); }
}

}  // namespace flowcore::cpu
