#include "variational/solver_timers.h"

timeval start_makematrix, finish_makematrix;
timeval start_solver, finish_solver;
timeval start_interp_warp, finish_interp_warp;
timeval start_down, finish_down;
timeval start_memcpy, finish_memcpy;

double timer_makematrix = 0.0, timer_solver = 0.0, timer_interp_warp = 0.0, timer_down = 0.0, timer_memcpy = 0.0;
