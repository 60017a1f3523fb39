// Splits the rows of an image into tasks for the CPU backend's threads: runs
// of about kTaskPixels pixels, their number rounded up to a multiple of the
// thread budget and the rows shared out evenly, so that no thread is left
// with a short last task while another works through a full one. Small
// images run on the calling thread, where waking other threads would cost
// more than the work. Callers compute every row the same way whatever task
// it falls in, so the split never changes a result.
#pragma once

#include "backends/cpu/thread_pool.h"

namespace vemo::cpu {

// Below this many pixels a loop is not worth waking the other threads.
constexpr long kParallelMinPixels = 8192;
// Pixels per task.
constexpr long kTaskPixels = 16384;

// How parallelRows shares out `rows` rows of `width` pixels: tasks of
// `chunk` rows each (the last one may be shorter), task t starting at row
// t * chunk. A single task runs on the calling thread.
struct RowSplit {
  int chunk;
  int tasks;
};

inline RowSplit rowSplit(int rows, int width) {
  const int threads = threadBudget();
  if (static_cast<long>(rows) * width < kParallelMinPixels || threads == 1 || rows < 2) return RowSplit{rows, 1};
  const long pixels = static_cast<long>(rows) * (width > 0 ? width : 1);
  long tasks = (pixels + kTaskPixels - 1) / kTaskPixels;
  tasks = (tasks + threads - 1) / threads * threads;
  if (tasks > rows) tasks = rows;
  const int chunk = static_cast<int>((rows + tasks - 1) / tasks);
  return RowSplit{chunk, (rows + chunk - 1) / chunk};
}

// Calls f(y0, y1) for the tasks of `split` over `rows` rows.
template <class F>
void parallelRows(const RowSplit& split, int rows, F&& f) {
  if (split.tasks <= 1) {
    f(0, rows);
    return;
  }
  const int chunk = split.chunk;
  parallelTasks(split.tasks, [&](int task) {
    const int y0 = task * chunk;
    f(y0, rows - y0 < chunk ? rows : y0 + chunk);
  });
}

template <class F>
void parallelRows(int rows, int width, F&& f) {
  parallelRows(rowSplit(rows, width), rows, f);
}

}  // namespace vemo::cpu
