#include "backends/cpu/elementwise.h"

#include "backends/cpu/pixel_loop.h"
#include "pixel/elementwise.h"

namespace vemo::cpu {

namespace {

VEMO_CPU_CLONES void scaleRows(float* arr, int width, int pitch, float scale, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) scaleAt(arr, pitch, scale, x, y);
}

VEMO_CPU_CLONES void setValueRows(float* a, int width, int pitch, float val, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) setValueAt(a, pitch, val, x, y);
}

VEMO_CPU_CLONES void addRows(float* acc, const float* b, int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) addAt(acc, b, pitch, x, y);
}

VEMO_CPU_CLONES void diffRows(float* c, const float* a, const float* b, int width, int pitch, int y0, int y1) {
  for (int y = y0; y < y1; ++y)
    for (int x = 0; x < width; ++x) diffAt(c, a, b, pitch, x, y);
}

}  // namespace

void Scale(float* arr, int height, int width, int pitch, float scale) {
  parallelRows(height, width, [&](int y0, int y1) { scaleRows(arr, width, pitch, scale, y0, y1); });
}

void setValue(float* a, int height, int width, int pitch, float val) {
  parallelRows(height, width, [&](int y0, int y1) { setValueRows(a, width, pitch, val, y0, y1); });
}

void Add(float* acc, const float* b, int height, int width, int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { addRows(acc, b, width, pitch, y0, y1); });
}

void Diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
  parallelRows(height, width, [&](int y0, int y1) { diffRows(c, a, b, width, pitch, y0, y1); });
}

}  // namespace vemo::cpu
