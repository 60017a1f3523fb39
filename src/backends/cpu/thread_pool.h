// The CPU backend's threads: a pool of workers that take the tasks of one
// parallel loop at a time.
//
// The calling thread posts a loop and starts on its tasks at once; workers
// claim the remaining ones as they arrive. Completion means every task is
// done, not every worker has reported, so a worker that is asleep or
// preempted by another program costs nothing: the tasks it did not claim are
// run by the others. Idle workers spin briefly (the next loop of a solver
// usually follows within microseconds) and then block, so they neither keep
// cores busy between runs nor steal time from other programs for long.
//
// Which thread runs a task never changes what the task computes: callers
// give every task a fixed piece of the work (rows, points) and compute each
// row or point the same way whichever piece holds it.
#pragma once

#include <type_traits>

namespace vemo::cpu {

// Threads a loop may use: OpenMP's setting (OMP_NUM_THREADS, or
// omp_set_num_threads of the calling thread), at least 1.
int threadBudget();

// Calls body(context, task) once for every task in [0, tasks), spread over
// at most `threads` threads, the calling thread included; returns when all
// are done. Runs on the calling thread alone when threads < 2, when called
// from inside a task, or while another thread's loop occupies the pool. An
// exception thrown by a task is rethrown here once every task has ended.
void runTasks(int tasks, int threads, void (*body)(void*, int), void* context);

// runTasks with a callable f(task) and the thread budget.
template <class F>
void parallelTasks(int tasks, F&& f) {
  using Fn = typename std::remove_reference<F>::type;
  runTasks(tasks, threadBudget(), [](void* c, int task) { (*static_cast<Fn*>(c))(task); },
           const_cast<void*>(static_cast<const void*>(&f)));
}

}  // namespace vemo::cpu
