// Splits the rows of an image over the OpenMP threads: thread t of n takes the
// contiguous range [rows * t / n, rows * (t + 1) / n). Small images run on the
// calling thread, where a parallel region would cost more than the work.
// Callers compute every row the same way whatever range it falls in.
#pragma once

#include <omp.h>

namespace flowcore::cpu {

// Below this many pixels a loop is not worth waking the other threads.
constexpr long kParallelMinPixels = 8192;

template <class F>
void parallelRows(int rows, int width, F&& f) {
  if (static_cast<long>(rows) * width < kParallelMinPixels || omp_get_max_threads() == 1) {
    f(0, rows);
    return;
  }
#pragma omp parallel
  {
    const int t = omp_get_thread_num(), n = omp_get_num_threads();
    const int y0 = static_cast<int>(static_cast<long>(rows) * t / n);
    const int y1 = static_cast<int>(static_cast<long>(rows) * (t + 1) / n);
    if (y1 > y0) f(y0, y1);
  }
}

}  // namespace flowcore::cpu
