#include <gtest/gtest.h>
#include <omp.h>

#include <functional>

#include "image/filter.h"
#include "image/recursive_smooth.h"

namespace {

// Runs `op` on a copy of `input` with one thread and with three, and expects
// bit-identical tensors. The image is large enough for the parallel paths.
void expectSameForThreadCounts(const CTensor<float>& input,
                               const std::function<void(CTensor<float>&)>& op) {
  const int before = omp_get_max_threads();
  CTensor<float> one(input), three(input);
  omp_set_num_threads(1);
  op(one);
  omp_set_num_threads(3);
  op(three);
  omp_set_num_threads(before);
  ASSERT_EQ(one.elements(), three.elements());
  for (size_t i = 0; i < one.elements(); ++i) ASSERT_EQ(one.data[i], three.data[i]) << i;
}

}  // namespace

// Splitting the work over threads (per-thread scratch lines, chunks of
// columns, blocks of rows) must not change any result: a work split that
// skips or repeats lines, or a sum whose order depends on the split, shows up
// as a difference between one and three threads.
TEST(HostImageThreads, ResultsDoNotDependOnThreadCount) {
  CTensor<float> image(331, 247, 3);
  for (size_t i = 0; i < image.elements(); ++i)
    image.data[i] = static_cast<float>((i * 2654435761u) % 256);
  expectSameForThreadCounts(image, [](CTensor<float>& t) {
    NFilter::recursiveSmoothX(t, 1.3f);
    NFilter::recursiveSmoothY(t, 1.3f);
  });
  const CSmooth<float> g(2.0f, 3.0f);
  expectSameForThreadCounts(image, [&](CTensor<float>& t) {
    CTensor<float> tmp(t.xSize, t.ySize, t.zSize);
    NFilter::filter(t, tmp, g, 1, 1);
    NFilter::filter(tmp, t, 1, g, 1);
  });
  expectSameForThreadCounts(image, [](CTensor<float>& t) {
    CTensor<float> tmp(t.xSize, t.ySize, t.zSize);
    NFilter::boxFilterX(t, tmp, 6);
    NFilter::boxFilterY(tmp, t, 6);
  });
  expectSameForThreadCounts(image, [](CTensor<float>& t) { t.upsampleBilinear(500, 400); });
  expectSameForThreadCounts(image, [](CTensor<float>& t) { t.downsample(200, 150); });
}
