#include "backends/cpu/elementwise.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/elementwise.h"

namespace vemo::cpu {

void Scale(float* arr, int height, int width, int pitch, float scale) {
  forEachPixel(height, width, [=](int x, int y) { scaleAt(arr, pitch, scale, x, y); });
}

void setValue(float* a, int height, int width, int pitch, float val) {
  forEachPixel(height, width, [=](int x, int y) { setValueAt(a, pitch, val, x, y); });
}

void Add(float* acc, const float* b, int height, int width, int pitch) {
  forEachPixel(height, width, [=](int x, int y) { addAt(acc, b, pitch, x, y); });
}

void Diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
  forEachPixel(height, width, [=](int x, int y) { diffAt(c, a, b, pitch, x, y); });
}

}  // namespace vemo::cpu
