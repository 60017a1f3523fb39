// Stretches of the coarse-to-fine solver, accumulated in milliseconds per
// thread over its whole life; only resetStageTimers (driver/run_flow.h) resets them (see
// common/timer.h for the arithmetic).
#pragma once

#include <sys/time.h>

// Assembly and solving of one level's fixed-point loop (solver included).
extern thread_local timeval start_makematrix, finish_makematrix;
// The conjugate-gradient solves alone.
extern thread_local timeval start_solver, finish_solver;
// Flow interpolation to the next level, warping and the match-term switch.
extern thread_local timeval start_interp_warp, finish_interp_warp;
// Filling each level's frames and match planes.
extern thread_local timeval start_down, finish_down;
// Allocation of the full-frame planes at the start of a run.
extern thread_local timeval start_memcpy, finish_memcpy;

extern thread_local double timer_makematrix, timer_solver, timer_interp_warp, timer_down, timer_memcpy;
