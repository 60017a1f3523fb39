#include "common/stage_lines.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace vemo {

namespace {
std::atomic<bool> linesOn{true};
}  // namespace

void setStageLines(bool on) { linesOn.store(on, std::memory_order_relaxed); }

bool stageLinesOn() { return linesOn.load(std::memory_order_relaxed); }

void stageLine(const char* format, ...) {
  if (!stageLinesOn()) return;
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
}

}  // namespace vemo
