// The lines a flow run prints on standard output as it goes: stage timings,
// the pyramid's size, the matching grid. The programs print them; callers
// that embed the library (vemo-flow without --timings, the Python module)
// switch them off for the whole process.
#pragma once

namespace vemo {

// On by default.
void setStageLines(bool on);
bool stageLinesOn();

// printf to standard output while stage lines are on; nothing otherwise.
void stageLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vemo
