// Wall-clock stretches measured with gettimeofday and accumulated in
// milliseconds. Every thread that runs flows has accumulators of its own,
// so that runs on several threads at once do not mix their times; the
// pipeline never resets them, so a second run on the same thread reports
// sums over both runs (vemo-flow zeroes them before each run with
// resetStageTimers).
#pragma once

#include <sys/time.h>

namespace vemo {

// Milliseconds between two gettimeofday stamps:
// seconds difference * 1000 + microseconds difference * 0.001.
inline double elapsedMs(const timeval& start, const timeval& finish) {
  return (finish.tv_sec - start.tv_sec) * 1000.0 + (finish.tv_usec - start.tv_usec) * 0.001;
}

inline void stamp(timeval& t) { gettimeofday(&t, nullptr); }

// Stamps `finish` and adds the stretch since `start` to `accumulator`.
inline void closeStretch(const timeval& start, timeval& finish, double& accumulator) {
  stamp(finish);
  accumulator += elapsedMs(start, finish);
}

}  // namespace vemo

// The pipeline driver's stretches (defined in timer.cpp).
extern thread_local timeval start_filter, finish_filter, start_memcpy1, finish_memcpy1;
extern thread_local timeval start_HOG, finish_HOG, start_var, finish_var, start_total, finish_total;
extern thread_local double timer_filter, timer_memcpy1, timer_HOG, timer_var, timer_total;
