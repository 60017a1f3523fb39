// Pipeline-level stretches: presmoothing, transfers, matching, the
// variational solver and the whole run.
#include "common/timer.h"

thread_local timeval start_filter, finish_filter, start_memcpy1, finish_memcpy1;
thread_local timeval start_HOG, finish_HOG, start_var, finish_var, start_total, finish_total;
thread_local double timer_filter = 0.0, timer_memcpy1 = 0.0, timer_HOG = 0.0, timer_var = 0.0, timer_total = 0.0;
