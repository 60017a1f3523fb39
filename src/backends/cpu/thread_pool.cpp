#include "backends/cpu/thread_pool.h"

#include <linux/futex.h>
#include <omp.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

namespace vemo::cpu {

namespace {

// How long an idle worker watches for the next loop before it blocks: the
// loops of one solver step follow each other within microseconds, while the
// serial stretches between them (small pyramid levels, host work) last
// longer. And how long the calling thread watches its last running tasks
// before it blocks (a worker running one may have been preempted). Watching
// spins for kPureSpin, then yields the processor between looks: on an idle
// machine a yield returns at once, while beside other busy programs it lets
// them (or this program's own preempted threads) run instead of the watcher.
constexpr std::chrono::microseconds kWorkerWatch(200);
constexpr std::chrono::microseconds kCallerWatch(100);
constexpr std::chrono::microseconds kPureSpin(5);

void futexWait(std::atomic<int>* word, int expected) {
  syscall(SYS_futex, reinterpret_cast<int*>(word), FUTEX_WAIT_PRIVATE, expected, nullptr, nullptr, 0);
}

void futexWakeAll(std::atomic<int>* word) {
  syscall(SYS_futex, reinterpret_cast<int*>(word), FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

// Watches until done() holds or `budget` has passed; says which.
template <class Done>
bool watchUntil(Done done, std::chrono::microseconds budget) {
  const auto start = std::chrono::steady_clock::now();
  for (;;) {
    for (int i = 0; i < 64; ++i) {
      if (done()) return true;
      cpuRelax();
    }
    const auto waited = std::chrono::steady_clock::now() - start;
    if (waited > budget) return done();
    if (waited > kPureSpin) sched_yield();
  }
}

// Set while a thread runs a task: loops started inside a task run serially.
thread_local bool insideTask = false;

// One parallel loop. Tasks are claimed in order from `next`; `remaining`
// counts those not yet finished (and is the word the caller sleeps on).
struct Job {
  void (*body)(void*, int) = nullptr;
  void* context = nullptr;
  int tasks = 0;
  int workers = 0;  // pool workers allowed to join: the thread budget less the caller
  std::atomic<int> next{0};
  std::atomic<int> remaining{0};
  std::atomic<int> callerAsleep{0};
  std::mutex errorMutex;
  std::exception_ptr error;

  void work() {
    insideTask = true;
    for (;;) {
      const int task = next.fetch_add(1);
      if (task >= tasks) break;
      try {
        body(context, task);
      } catch (...) {
        std::lock_guard<std::mutex> lock(errorMutex);
        if (!error) error = std::current_exception();
      }
      if (remaining.fetch_sub(1) == 1 && callerAsleep.load() != 0) futexWakeAll(&remaining);
    }
    insideTask = false;
  }
};

class Pool {
 public:
  void run(int tasks, int threads, void (*body)(void*, int), void* context) {
    std::unique_lock<std::mutex> busy(dispatch_, std::try_to_lock);
    if (!busy.owns_lock()) return runSerially(tasks, body, context);
    startWorkers(threads - 1);

    auto job = std::make_shared<Job>();
    job->body = body;
    job->context = context;
    job->tasks = tasks;
    job->workers = threads - 1;
    job->remaining.store(tasks);
    {
      std::lock_guard<std::mutex> lock(jobMutex_);
      current_ = job;
    }
    generation_.fetch_add(1);
    if (sleepers_.load() > 0) futexWakeAll(&generation_);

    job->work();
    if (!watchUntil([&] { return job->remaining.load() == 0; }, kCallerWatch)) {
      job->callerAsleep.store(1);
      for (int left = job->remaining.load(); left != 0; left = job->remaining.load())
        futexWait(&job->remaining, left);
      job->callerAsleep.store(0);
    }
    {
      std::lock_guard<std::mutex> lock(jobMutex_);
      current_.reset();
    }
    if (job->error) std::rethrow_exception(job->error);
  }

  static void runSerially(int tasks, void (*body)(void*, int), void* context) {
    for (int task = 0; task < tasks; ++task) body(context, task);
  }

 private:
  void startWorkers(int wanted) {
    while (started_ < wanted) {
      try {
        std::thread(&Pool::workerLoop, this, started_).detach();
      } catch (const std::system_error&) {
        return;  // no more threads to be had: the ones there are do the work
      }
      ++started_;
    }
  }

  void workerLoop(int index) {
    int seen = generation_.load();
    for (;;) {
      if (!watchUntil([&] { return generation_.load() != seen; }, kWorkerWatch)) {
        sleepers_.fetch_add(1);
        while (generation_.load() == seen) futexWait(&generation_, seen);
        sleepers_.fetch_sub(1);
      }
      seen = generation_.load();
      std::shared_ptr<Job> job;
      {
        std::lock_guard<std::mutex> lock(jobMutex_);
        job = current_;
      }
      if (job && index < job->workers) job->work();
    }
  }

  std::mutex dispatch_;          // held by the thread whose loop occupies the pool
  int started_ = 0;              // workers started (under dispatch_)
  std::mutex jobMutex_;          // guards current_
  std::shared_ptr<Job> current_;
  std::atomic<int> generation_{0};  // counts posted loops; idle workers sleep on it
  std::atomic<int> sleepers_{0};
};

// Never destroyed: blocked workers may outlive main.
Pool& pool() {
  static Pool* instance = new Pool;
  return *instance;
}

}  // namespace

int threadBudget() {
  const int n = omp_get_max_threads();
  return n > 1 ? n : 1;
}

void runTasks(int tasks, int threads, void (*body)(void*, int), void* context) {
  if (tasks <= 0) return;
  if (threads < 2 || tasks < 2 || insideTask) return Pool::runSerially(tasks, body, context);
  pool().run(tasks, threads, body, context);
}

}  // namespace vemo::cpu
