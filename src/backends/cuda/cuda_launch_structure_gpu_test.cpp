// The CUDA backend's ways of running the same work with fewer launches give
// the values of the work issued operation by operation, bit for bit: the
// fused diffusivity, a level run in one thread block, and solves replayed
// from CUDA graphs. Run on a simulated GPU only, so far (docs/gpu-validation.md).
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_gpu_test_fixture.h"
#include "backends/cuda/cuda_work_policy.h"
#include "image/synthetic.h"
#include "variational/nonlinear_iteration.h"
#include "variational/solver_timers.h"

namespace vemo {
namespace {

using cuda_testing::CudaAgainstCpu;
using cuda_testing::sameValue;

#if defined(VEMO_HAVE_CUDA)
// A CUDA backend of its own, whose switches a test may turn (only in builds
// with the CUDA backend; elsewhere the tests that need it are not built).
std::unique_ptr<CudaBackend> freshCuda() {
  std::unique_ptr<Backend> b = makeCudaBackend();
  auto* cuda = dynamic_cast<CudaBackend*>(b.get());
  if (cuda == nullptr) return nullptr;
  b.release();
  return std::unique_ptr<CudaBackend>(cuda);
}

// The flow (u, v) after one level of fixed-point iterations on `backend`,
// from a synthetic pair with a match field on part of the level. `calls`
// levels run one after another on the same buffers (the flow carried over),
// so that a second call replays what the first recorded.
struct LevelResult {
  std::vector<float> u, v;
  int lastSolve = 0;
  long long updates = 0;
};

LevelResult runLevel(Backend& b, int height, int width, int fixedPoint, int solver, int calls) {
  const int pitch = b.pitchFor(width);
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(width, height, 1.5f, -0.75f, 11, f1, f2, truth);
  const Buffer frame1 = uploadRows(b, f1.data, width, 3 * height, pitch);
  const Buffer frame2 = uploadRows(b, f2.data, width, 3 * height, pitch);
  std::vector<float> ones(static_cast<std::size_t>(width) * height, 1.0f), geo(ones.size()), conf(ones.size());
  for (std::size_t i = 0; i < geo.size(); ++i) {
    geo[i] = (i % 7 == 0) ? 1.0f : 0.0f;
    conf[i] = (i % 7 == 0) ? 0.5f : 0.0f;
  }
  const Buffer mask = uploadRows(b, ones.data(), width, height, pitch);
  const Buffer geoU = uploadRows(b, geo.data(), width, height, pitch);
  const Buffer geoConf = uploadRows(b, conf.data(), width, height, pitch);
  Buffer u = b.allocate(plane), v = b.allocate(plane);
  b.clear(u.data(), plane);
  b.clear(v.data(), plane);
  SolverScratch scratch(b, plane);
  for (int k = 0; k < calls; ++k)
    gNonLinearIteration(b, frame1.data(), frame2.data(), mask.data(), geoU.data(), geoU.data(), geoConf.data(), 1,
                        u.data(), v.data(), height, width, pitch, 3, 30.0f, 300.0f, 5.0f, fixedPoint, solver,
                        scratch.cg(), scratch.fp());
  b.settleStretches();
  LevelResult r;
  r.u.resize(plane);
  r.v.resize(plane);
  b.download(r.u.data(), u.data(), static_cast<int>(plane), static_cast<int>(plane), 1);
  b.download(r.v.data(), v.data(), static_cast<int>(plane), static_cast<int>(plane), 1);
  r.lastSolve = b.cgIterations();
  r.updates = b.solverUpdates();
  return r;
}
#endif

void expectSameBits(const std::vector<float>& a, const std::vector<float>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size());
  std::size_t bad = 0, first = 0;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (!sameValue(a[i], b[i]) && bad++ == 0) first = i;
  EXPECT_EQ(bad, 0u) << what << ": first difference at " << first << ": " << a[first] << " vs " << b[first];
}

TEST_F(CudaAgainstCpu, FusedDiffusivityIsTheComposedPassesBitForBit) {
  // Widths around the 16-wide tiles of the short filters, whose border rule
  // the fused pass reproduces per pixel.
  for (const int W : {5, 16, 17, 33, 70}) {
    SCOPED_TRACE(testing::Message() << "width " << W);
    const int H = 19, pitch = gpu().pitchFor(W);
    const std::size_t plane = static_cast<std::size_t>(pitch) * H;
    Twin u = twin(randomPlanes(H, W, 1, 1, -3.0f, 3.0f)), v = twin(randomPlanes(H, W, 1, 2, -3.0f, 3.0f));
    Twin du = twin(randomPlanes(H, W, 1, 3, -0.5f, 0.5f)), dv = twin(randomPlanes(H, W, 1, 4, -0.5f, 0.5f));
    Twin sum = zeros(plane), derivative = zeros(plane);
    // Garbage in the outputs: the fused pass must write every float.
    Twin fusedX = twin(std::vector<float>(plane, 7.0f)), fusedY = twin(std::vector<float>(plane, 7.0f));
    Twin composedX = zeros(plane), composedY = zeros(plane);
    // A larger epsilon than the method's (some presets use one) reaches the
    // kernel and the composed passes alike.
    const double epsilon = 1e-3;
    gpu().diffusivity(u.g(), v.g(), du.g(), dv.g(), fusedX.g(), fusedY.g(), H, W, pitch, sum.g(), derivative.g(),
                      epsilon);
    gpu().Backend::diffusivity(u.g(), v.g(), du.g(), dv.g(), composedX.g(), composedY.g(), H, W, pitch, sum.g(),
                               derivative.g(), epsilon);
    cpu().diffusivity(u.c(), v.c(), du.c(), dv.c(), composedX.c(), composedY.c(), H, W, pitch, sum.c(),
                      derivative.c(), epsilon);
    expectSameBits(fetch(gpu(), fusedX.g(), plane), fetch(gpu(), composedX.g(), plane), "diffX, fused vs composed");
    expectSameBits(fetch(gpu(), fusedY.g(), plane), fetch(gpu(), composedY.g(), plane), "diffY, fused vs composed");
    expectSame(composedX, "diffX, CUDA vs CPU");
    expectSame(composedY, "diffY, CUDA vs CPU");
  }
}

#if defined(VEMO_HAVE_CUDA)
// Shapes below the one-block size, square, wide, tall and the largest
// square below it; the solver's last count and the run's update count must
// agree too (the scalars advance the same way).
TEST_F(CudaAgainstCpu, ALevelInOneBlockIsTheLevelIssuedOpByOp) {
  struct Shape {
    int height, width;
  };
  const int fixedPoint = cuda_testing::simulatedGpu() ? 2 : 5, solver = cuda_testing::simulatedGpu() ? 4 : 10;
  for (const Shape s : {Shape{16, 21}, Shape{24, 37}, Shape{3, 1300}, Shape{400, 9}, Shape{63, 64}}) {
    SCOPED_TRACE(testing::Message() << s.width << " x " << s.height);
    ASSERT_TRUE(cuda::runsLevelInOneBlock(s.height, s.width));
    std::unique_ptr<CudaBackend> oneBlock = freshCuda(), opByOp = freshCuda();
    ASSERT_TRUE(oneBlock && opByOp);
    opByOp->setOneBlockLevels(false);
    const LevelResult a = runLevel(*oneBlock, s.height, s.width, fixedPoint, solver, 1);
    const LevelResult b = runLevel(*opByOp, s.height, s.width, fixedPoint, solver, 1);
    expectSameBits(a.u, b.u, "u");
    expectSameBits(a.v, b.v, "v");
    EXPECT_EQ(a.lastSolve, b.lastSolve);
    EXPECT_EQ(a.updates, b.updates);
    EXPECT_GT(a.updates, 0);
  }
}

// The solves inside a one-block level are timed by the device clock (there
// are no events inside a kernel); a clock that is never read leaves the
// solver time unchanged.
TEST_F(CudaAgainstCpu, SolvesInOneBlockAreTimedByTheDeviceClock) {
  std::unique_ptr<CudaBackend> oneBlock = freshCuda();
  ASSERT_TRUE(oneBlock);
  const double solverBefore = timer_solver;
  runLevel(*oneBlock, 16, 21, 2, 4, 1);
  EXPECT_GT(timer_solver, solverBefore) << "the solves in the block were not timed";
}

// A level above the one-block size: the first solve is issued directly, the
// second recorded, the rest replayed; a second call on the same buffers
// replays from its first solve on. Graphs must not change a bit.
TEST_F(CudaAgainstCpu, SolvesReplayedFromGraphsAreTheSolvesIssuedDirectly) {
  // Simulated: a level just above the one-block size, two solves per call
  // (one direct, one recorded; the second call replays both).
  const bool simulated = cuda_testing::simulatedGpu();
  const int H = simulated ? 45 : 150, W = simulated ? 103 : 203;
  const int fixedPoint = simulated ? 2 : 5, solver = simulated ? 4 : 10;
  ASSERT_FALSE(cuda::runsLevelInOneBlock(H, W));
  std::unique_ptr<CudaBackend> recorded = freshCuda(), direct = freshCuda();
  ASSERT_TRUE(recorded && direct);
  direct->setRecording(false);
  const LevelResult a = runLevel(*recorded, H, W, fixedPoint, solver, 2);
  const LevelResult b = runLevel(*direct, H, W, fixedPoint, solver, 2);
  expectSameBits(a.u, b.u, "u");
  expectSameBits(a.v, b.v, "v");
  EXPECT_EQ(a.lastSolve, b.lastSolve);
  EXPECT_EQ(a.updates, b.updates);
}
#endif

}  // namespace
}  // namespace vemo
