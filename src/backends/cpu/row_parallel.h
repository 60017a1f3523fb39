// Splits the rows of an image into tasks for the CPU backend's threads: each
// task takes a fixed run of rows (about kTaskPixels pixels), so the pieces
// depend on the image size alone. Small images run on the calling thread,
// where waking other threads would cost more than the work. Callers compute
// every row the same way whatever task it falls in.
#pragma once

#include "backends/cpu/thread_pool.h"

namespace flowcore::cpu {

// Below this many pixels a loop is not worth waking the other threads.
constexpr long kParallelMinPixels = 8192;
// Pixels per task.
constexpr long kTaskPixels = 16384;

template <class F>
void parallelRows(int rows, int width, F&& f) {
  if (static_cast<long>(rows) * width < kParallelMinPixels || threadBudget() == 1) {
    f(0, rows);
    return;
  }
  const long perTask = width > 0 ? kTaskPixels / width : rows;
  const int chunk = perTask > 1 ? static_cast<int>(perTask < rows ? perTask : rows) : 1;
  const int tasks = static_cast<int>((static_cast<long>(rows) + chunk - 1) / chunk);
  parallelTasks(tasks, [&](int task) {
    const int y0 = task * chunk;
    f(y0, rows - y0 < chunk ? rows : y0 + chunk);
  });
}

}  // namespace flowcore::cpu
