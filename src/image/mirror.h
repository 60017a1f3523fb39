// The mirrored border of the host filters: a line of n samples is extended
// by reflecting it about its end half-samples, so the edge sample repeats
// (index -1 reads 0, -2 reads 1, n reads n - 1, n + 1 reads n - 2). The
// reflection repeats with period 2n, so indices any distance outside the
// line still land inside it.
#pragma once

namespace NFilter {

inline int mirrorIndex(int j, int n) {
  if (j >= 0 && j < n) return j;
  const long long period = 2LL * n;
  long long m = j % period;
  if (m < 0) m += period;
  return static_cast<int>(m < n ? m : period - 1 - m);
}

}  // namespace NFilter
