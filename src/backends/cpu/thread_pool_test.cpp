#include "backends/cpu/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using vemo::cpu::runTasks;

// Runs `tasks` tasks on `threads` threads and counts how often each ran.
std::vector<int> runCounting(int tasks, int threads) {
  std::vector<std::atomic<int>> count(tasks > 0 ? tasks : 1);
  auto body = [&](int task) { count[task].fetch_add(1); };
  runTasks(tasks, threads, [](void* c, int t) { (*static_cast<decltype(body)*>(c))(t); }, &body);
  std::vector<int> out;
  for (int t = 0; t < tasks; ++t) out.push_back(count[t].load());
  return out;
}

// Every task runs exactly once, however many threads and tasks (more threads
// than tasks, one task, none, and loops posted back to back).
TEST(ThreadPool, EveryTaskRunsOnce) {
  for (int threads : {1, 2, 3, 8})
    for (int tasks : {0, 1, 2, 7, 100})
      for (int repeat = 0; repeat < 20; ++repeat)
        EXPECT_EQ(runCounting(tasks, threads), std::vector<int>(tasks, 1)) << threads << " " << tasks;
}

// A loop started inside a task, or from a second thread while the pool is
// busy, runs on its own thread and still completes; an exception thrown by a
// task reaches the caller after the loop has ended.
TEST(ThreadPool, NestedConcurrentAndFailingLoops) {
  std::atomic<int> inner{0};
  vemo::cpu::parallelTasks(4, [&](int) {
    std::vector<int> counts = runCounting(5, 4);
    inner.fetch_add(counts == std::vector<int>(5, 1) ? 1 : 100);
  });
  EXPECT_EQ(inner.load(), 4);

  std::atomic<bool> ok{true};
  std::thread other([&] {
    for (int i = 0; i < 200; ++i) ok = ok && runCounting(9, 3) == std::vector<int>(9, 1);
  });
  for (int i = 0; i < 200; ++i) EXPECT_EQ(runCounting(11, 3), std::vector<int>(11, 1));
  other.join();
  EXPECT_TRUE(ok);

  std::atomic<int> ran{0};
  auto failing = [&](int task) {
    ran.fetch_add(1);
    if (task == 3) throw std::runtime_error("task 3");
  };
  EXPECT_THROW(runTasks(8, 3, [](void* c, int t) { (*static_cast<decltype(failing)*>(c))(t); }, &failing),
               std::runtime_error);
  EXPECT_EQ(ran.load(), 8);
}

}  // namespace
