#include "variational/solver_timers.h"

thread_local timeval start_makematrix, finish_makematrix;
thread_local timeval start_solver, finish_solver;
thread_local timeval start_interp_warp, finish_interp_warp;
thread_local timeval start_down, finish_down;
thread_local timeval start_memcpy, finish_memcpy;

thread_local double timer_makematrix = 0.0, timer_solver = 0.0, timer_interp_warp = 0.0, timer_down = 0.0, timer_memcpy = 0.0;
