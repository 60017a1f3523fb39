#include "common/stage_lines.h"

#include <cstdarg>
#include <cstdio>

namespace vemo {

namespace {
thread_local bool linesOn = true;
}  // namespace

void setStageLines(bool on) { linesOn = on; }

bool stageLinesOn() { return linesOn; }

void stageLine(const char* format, ...) {
  if (!stageLinesOn()) return;
  va_list args;
  va_start(args, format);
  std::vprintf(format, args);
  va_end(args);
}

}  // namespace vemo
