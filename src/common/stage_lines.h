// The lines a flow run prints on standard output as it goes: stage timings,
// the pyramid's size, the matching grid. The programs print them; callers
// that embed the library (vemo-flow without --timings, the public API)
// switch them off for the thread that runs the flow.
#pragma once

namespace vemo {

// For the calling thread; on by default.
void setStageLines(bool on);
bool stageLinesOn();

// printf to standard output while stage lines are on; nothing otherwise.
void stageLine(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace vemo
