// How the CUDA backend groups the work of the variational solver into
// launches. Host code (the counting backend of the tests) reads the same
// rules to count what a run costs on a GPU.
#pragma once

namespace vemo::cuda {

// Pyramid levels of fewer pixels than this run whole (motion tensors and
// every fixed-point iteration) in one thread block: one launch per level.
// Larger levels issue their operations one by one and replay each solve from
// a CUDA graph.
//
// Chosen without a GPU, so from counts and estimates, not timings. Issued
// operation by operation, a level of 5 fixed-point iterations of 10 solver
// iterations costs 408 calls that enqueue device work (38 for the motion
// tensors and the level's bookkeeping, 74 per fixed-point iteration; counted
// by tests/support/counting_backend.h). With the solves replayed from graphs
// it is 132 host calls and 280 graph nodes: at 3-5 us per launch and about
// 1 us per graph node, 0.4-0.7 ms per level whatever its size. One block
// moves the level's roughly 2,500 plane passes (4 bytes a pixel each)
// through one SM; with 16 warps it is latency-bound, at an estimated
// 30-100 GB/s, so about 100-330 ns per pixel. The two meet between about
// 1,300 and 7,000 pixels; 4,096 (64 x 64) lies between. At 640 x 480 with
// eta 0.95 it puts the coarsest 25 of the 68 levels in one block each. A GPU
// session should time levels on both sides and move this constant
// (docs/gpu-validation.md).
constexpr long long kOneBlockLevelPixels = 4096;

inline bool runsLevelInOneBlock(int height, int width) {
  return height > 0 && width > 0 && static_cast<long long>(height) * width < kOneBlockLevelPixels;
}

// Repeatable work (a solve) is issued directly the first time its key is
// seen, which lets every buffer it needs be allocated outside a capture;
// the second time it is captured into a CUDA graph and launched; later
// calls with the same key replay the graph.
constexpr int kDirectIssuesBeforeRecording = 1;

// Recorded graphs kept; the least recently used goes first.
constexpr int kMaxRecordedGraphs = 64;

}  // namespace vemo::cuda
