// The CUDA backend against the CPU backend: the per-pixel stages must agree
// bit for bit (same functions, no contraction on either side); dot products
// may differ by one float ulp (different summation order in double); a whole
// run may drift by the accumulated effect of those ulps in the solver.
#include "variational/motion_tensors.h"
#include "variational/pcg.h"
#include "backends/cuda/cuda_gpu_test_fixture.h"
#include "pixel/diffusivity.h"

namespace vemo {
namespace {

using cuda_testing::CudaAgainstCpu;
using cuda_testing::sameValue;
using cuda_testing::ulpDistance;

// Sizes that put the line ends in every position of a 16-pixel tile, images
// narrower than a mask's half-width, and single pixels.
struct Size {
  int height, width;
};
const Size kSizes[] = {{1, 1}, {3, 2}, {23, 37}, {16, 16}, {17, 33}, {40, 161}};

TEST_F(CudaAgainstCpu, FilterTileBordersAndInPlacePassesAgreeBitForBit) {
  const float masks[][9] = {{0.25f, 0.5f, 0.25f},
                            {1.0f / 12, -8.0f / 12, 0.0f, 8.0f / 12, -1.0f / 12},
                            {0.1f, 0.2f, 0.3f, 0.4f, -0.3f, 0.2f, 0.1f},
                            {0.3f, -0.1f, 0.2f, 0.05f, 0.1f, 0.15f, 0.2f, -0.25f},
                            {0.01f, 0.05f, 0.1f, 0.2f, 0.28f, 0.2f, 0.1f, 0.05f, 0.01f}};
  const int lengths[] = {3, 5, 7, 8, 9};
  unsigned seed = 1;
  for (const Size s : kSizes) {
    const int pitch = gpu().pitchFor(s.width);
    const std::size_t plane = static_cast<std::size_t>(pitch) * s.height;
    for (int m = 0; m < 5; ++m) {
      const std::string tag = std::to_string(s.width) + "x" + std::to_string(s.height) + " mask " +
                              std::to_string(lengths[m]);
      Twin in = twin(randomPlanes(s.height, s.width, 1, seed++, -50.0f, 200.0f));
      Twin out = zeros(plane);
      cpu().convolveX(out.c(), in.c(), s.height, s.width, pitch, masks[m], lengths[m]);
      gpu().convolveX(out.g(), in.g(), s.height, s.width, pitch, masks[m], lengths[m]);
      expectSame(out, "convolveX " + tag);
      cpu().convolveY(out.c(), in.c(), s.height, s.width, pitch, masks[m], lengths[m]);
      gpu().convolveY(out.g(), in.g(), s.height, s.width, pitch, masks[m], lengths[m]);
      expectSame(out, "convolveY " + tag);
      // In place: the filter must read the original plane, not its own output.
      cpu().convolveY(in.c(), in.c(), s.height, s.width, pitch, masks[m], lengths[m]);
      gpu().convolveY(in.g(), in.g(), s.height, s.width, pitch, masks[m], lengths[m]);
      cpu().convolveX(in.c(), in.c(), s.height, s.width, pitch, masks[m], lengths[m]);
      gpu().convolveX(in.g(), in.g(), s.height, s.width, pitch, masks[m], lengths[m]);
      expectSame(in, "in-place convolve " + tag);
    }
    // Element-wise stages over the same sizes.
    Twin a = twin(randomPlanes(s.height, s.width, 1, seed++, -3.0f, 3.0f));
    Twin b = twin(randomPlanes(s.height, s.width, 1, seed++, -3.0f, 3.0f));
    for (Backend* be : {&cpu(), &gpu()}) {
      const bool onCpu = be == &cpu();
      be->scale(onCpu ? a.c() : a.g(), s.height, s.width, pitch, 0.7f);
      be->add(onCpu ? a.c() : a.g(), onCpu ? b.c() : b.g(), s.height, s.width, pitch);
      be->setValue(onCpu ? b.c() : b.g(), s.height, (s.width + 1) / 2, pitch, -1.25f);
    }
    expectSame(a, "scale and add");
    expectSame(b, "setValue");
  }
  // An over-long mask is refused, not read past its end.
  Twin p = zeros(gpu().pitchFor(8) * 8);
  std::vector<float> longMask(5000, 0.0f);
  EXPECT_THROW(gpu().convolveX(p.g(), p.g(), 8, 8, gpu().pitchFor(8), longMask.data(), 5000), BackendError);
  EXPECT_THROW(gpu().convolveY(p.g(), p.g(), 8, 8, gpu().pitchFor(8), nullptr, 3), BackendError);
}

TEST_F(CudaAgainstCpu, ResamplingWarpingAndMotionTensorsAgreeBitForBit) {
  const int H = 45, W = 61, pitch = gpu().pitchFor(W);
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  // Downsampling by non-integer factors, with and without weights, then
  // enlargement back.
  Twin src = twin(randomPlanes(H, W, 1, 11, 0.0f, 255.0f));
  Twin conf = twin(planes(H, W, 1, [](int x, int y, int) { return ((x * 7 + y * 3) % 5) / 4.0f; }));
  const int nh = 19, nw = 26, npitch = gpu().pitchFor(nw);
  for (const bool weighted : {false, true}) {
    Twin small = zeros(static_cast<std::size_t>(npitch) * nh);
    cpu().downsample(src.c(), H, W, pitch, small.c(), nh, nw, npitch, weighted ? conf.c() : nullptr);
    gpu().downsample(src.g(), H, W, pitch, small.g(), nh, nw, npitch, weighted ? conf.g() : nullptr);
    expectSame(small, weighted ? "weighted downsample" : "downsample");
    Twin big = zeros(plane);
    cpu().interpolate(big.c(), H, W, pitch, small.c(), nh, nw, npitch, static_cast<float>(W) / nw);
    gpu().interpolate(big.g(), H, W, pitch, small.g(), nh, nw, npitch, static_cast<float>(W) / nw);
    expectSame(big, "interpolate");
  }
  // Warping with flow that leaves the image on every side and lands on
  // exact pixel positions and edges.
  Twin frame1 = twin(randomPlanes(H, W, 3, 12, 0.0f, 255.0f));
  Twin frame2 = twin(randomPlanes(H, W, 3, 13, 0.0f, 255.0f));
  Twin u = twin(planes(H, W, 1, [&](int x, int y, int) { return (x % 9 == 0) ? -x - 0.5f : 0.37f * (y - H / 2); }));
  Twin v = twin(planes(H, W, 1, [&](int x, int y, int) { return (y % 7 == 0) ? 1.0f : -0.29f * (x - W / 2); }));
  Twin warped = zeros(3 * plane), mask = zeros(plane);
  cpu().warpMotion(warped.c(), u.c(), v.c(), frame2.c(), frame1.c(), 3, mask.c(), H, W, pitch);
  gpu().warpMotion(warped.g(), u.g(), v.g(), frame2.g(), frame1.g(), 3, mask.g(), H, W, pitch);
  expectSame(warped, "warped frame");
  expectSame(mask, "warp confidence");
  // Tensors accumulate over the three channels into non-zero planes.
  Twin ST = twin(randomPlanes(H, W, 6, 14, 0.0f, 1.0f));
  Twin ST2 = twin(randomPlanes(H, W, 6, 15, 0.0f, 1.0f));
  Twin derivatives = twin(randomPlanes(H, W, 8, 16, 0.0f, 1.0f));
  MakeST(cpu(), frame1.c(), warped.c(), ST.c(), ST2.c(), mask.c(), derivatives.c(), H, W, pitch, 3);
  MakeST(gpu(), frame1.g(), warped.g(), ST.g(), ST2.g(), mask.g(), derivatives.g(), H, W, pitch, 3);
  expectSame(ST, "brightness tensor");
  expectSame(ST2, "gradient tensor");
}

TEST_F(CudaAgainstCpu, DiffusivityWeightsAndAssemblyAgreeBitForBit) {
  const int H = 33, W = 47, pitch = gpu().pitchFor(W);
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  std::mt19937 rng(21);
  std::normal_distribution<float> g(0.0f, 1.0f);
  // Tensor planes J11, J22, J33, J12, J13, J23 of w (a, b, c)(a, b, c)^T:
  // positive semi-definite, as real motion tensors are.
  std::vector<float> st(6 * plane, 0.0f), st2(6 * plane, 0.0f);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x)
      for (std::vector<float>* t : {&st, &st2}) {
        const float a = g(rng), b = g(rng), c = g(rng), w = std::fabs(g(rng)) * 10.0f;
        const float e[6] = {w * a * a, w * b * b, w * c * c, w * a * b, w * a * c, w * b * c};
        for (int k = 0; k < 6; ++k) (*t)[k * plane + static_cast<std::size_t>(y) * pitch + x] = e[k];
      }
  Twin ST = twin(st), ST2 = twin(st2);
  Twin u = twin(randomPlanes(H, W, 1, 22, -3.0f, 3.0f)), v = twin(randomPlanes(H, W, 1, 23, -3.0f, 3.0f));
  Twin du = twin(randomPlanes(H, W, 2, 24, -0.5f, 0.5f));
  Twin geoU = twin(randomPlanes(H, W, 2, 25, -4.0f, 4.0f)), geoV = twin(randomPlanes(H, W, 2, 26, -4.0f, 4.0f));
  Twin geoConf = twin(planes(H, W, 2, [](int x, int y, int k) { return ((x + y + k) % 3 == 0) ? 0.0f : 0.8f; }));
  Twin channel = twin(randomPlanes(H, W, 1, 27, 0.0f, 255.0f)), grad = twin(randomPlanes(H, W, 1, 28, -20.0f, 20.0f));
  // Diffusivity: both edge directions accumulate, then the robust
  // normalisation.
  Twin diffX = zeros(plane), diffY = zeros(plane);
  for (Backend* be : {&cpu(), &gpu()}) {
    const bool c = be == &cpu();
    for (int pass = 0; pass < 2; ++pass) {
      be->gradientX(c ? diffX.c() : diffX.g(), c ? grad.c() : grad.g(), c ? channel.c() : channel.g(), H, W, pitch);
      be->gradientY(c ? diffY.c() : diffY.g(), c ? grad.c() : grad.g(), c ? channel.c() : channel.g(), H, W, pitch);
    }
    be->normalize(c ? diffX.c() : diffX.g(), H, W, pitch, kRobustEpsilon);
    be->normalize(c ? diffY.c() : diffY.g(), H, W, pitch, kRobustEpsilon);
  }
  expectSame(diffX, "diffusivity x");
  expectSame(diffY, "diffusivity y");
  // The four assembly stages one by one, two match hypotheses included.
  Twin pd = zeros(plane), pg = zeros(plane), pm = zeros(plane), mu = zeros(plane), mv = zeros(plane);
  Twin A = zeros(12 * plane), b = zeros(2 * plane);
  for (Backend* be : {&cpu(), &gpu()}) {
    const bool c = be == &cpu();
    auto P = [c](const Twin& t) { return c ? t.c() : t.g(); };
    be->dataFactor(P(ST), P(du), P(du) + plane, P(pd), H, W, pitch);
    be->gradientFactor(P(ST2), P(du), P(du) + plane, P(pg), H, W, pitch, 5.0f);
    be->matchFactor(P(u), P(v), P(du), P(du) + plane, P(geoU), P(geoV), P(geoConf), P(pm), P(mu), P(mv), 2, H, W,
                    pitch, 300.0f);
    be->makeMatrix(P(A), P(b), P(pd), P(pg), P(pm), P(ST), P(ST2), P(mu), P(mv), P(u), P(v), P(diffX), P(diffY), H,
                   W, pitch, 30.0f);
  }
  expectSame(pd, "data weight");
  expectSame(pg, "gradient weight");
  expectSame(pm, "match weight");
  expectSame(mu, "match right-hand side u");
  expectSame(mv, "match right-hand side v");
  expectSame(A, "system matrix");
  expectSame(b, "right-hand side");
  // The fused assembly gives the same system as the CPU's fused pass.
  Twin weights = zeros(5 * plane), fA = zeros(12 * plane), fb = zeros(2 * plane);
  for (Backend* be : {&cpu(), &gpu()}) {
    const bool c = be == &cpu();
    auto P = [c](const Twin& t) { return c ? t.c() : t.g(); };
    FPtmp fp;
    fp.du = P(du);
    fp.ST = P(ST);
    fp.ST2 = P(ST2);
    fp.dPsiData = P(weights);
    fp.dPsiGradient = P(weights) + plane;
    fp.dPsiMatch = P(weights) + 2 * plane;
    fp.matchU = P(weights) + 3 * plane;
    fp.matchV = P(weights) + 4 * plane;
    fp.diffX = P(diffX);
    fp.diffY = P(diffY);
    fp.devMatrix = P(fA);
    fp.b = P(fb);
    be->assembleSystem(fp, P(u), P(v), P(geoU), P(geoV), P(geoConf), H, W, pitch, 30.0f, 300.0f, 5.0f);
  }
  expectSame(fA, "fused system matrix");
  expectSame(fb, "fused right-hand side");
}

TEST_F(CudaAgainstCpu, SolverPassesAgreeAndDotsStayWithinOneUlp) {
  const int H = 29, W = 300, pitch = gpu().pitchFor(W);  // rows wider than a reduction block
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  // A diagonally dominant matrix, with some singular 2 x 2 blocks that the
  // preconditioner must pass through unchanged.
  std::vector<float> a = randomPlanes(H, W, 12, 31, -1.0f, 0.0f);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * pitch + x;
      const bool singular = (x * 13 + y) % 17 == 0;
      a[i] = singular ? 0.0f : 5.0f + a[i];
      a[3 * plane + i] = singular ? 0.0f : 6.0f - a[3 * plane + i];
      a[plane + i] = a[2 * plane + i] = singular ? 0.0f : 0.5f * a[plane + i];
    }
  Twin A = twin(a);
  Twin rhs = twin(randomPlanes(H, W, 2, 32, -10.0f, 10.0f));
  Twin x = twin(randomPlanes(H, W, 2, 33, -1.0f, 1.0f));
  Twin z = twin(randomPlanes(H, W, 2, 34, -1.0f, 1.0f));
  Twin r = zeros(2 * plane), q = zeros(2 * plane), y = zeros(2 * plane), pNext = zeros(2 * plane);
  float dots[2][3] = {};
  for (Backend* be : {&cpu(), &gpu()}) {
    const int k = be == &gpu();
    auto P = [k](const Twin& t) { return k ? t.g() : t.c(); };
    be->residual(P(A), P(rhs), P(x), P(x) + plane, H, W, pitch, P(r));
    be->product(P(A), P(x), P(x) + plane, H, W, pitch, P(q));
    be->blockJacobi(P(A), P(r), P(y), H, W, pitch);
    be->saxpy2(P(x), P(q), 0.3f, P(r), P(y), -0.7f, 2 * H, W, pitch);
    be->scaleAndAdd(P(z), P(r), 0.9f, 2 * H, W, pitch);
    dots[k][0] = be->nextDirectionProductDot(P(A), P(x), P(z), 0.45f, P(pNext), P(q), H, W, pitch);
    dots[k][1] = be->updatePrecondition(P(A), P(x), P(pNext), P(r), P(q), 0.01f, P(z), H, W, pitch);
    dots[k][2] = be->dot(P(rhs), P(z), 2 * H, W, pitch);
  }
  expectSame(r, "residual");
  expectSame(q, "product");
  expectSame(y, "block Jacobi");
  expectSame(x, "solution after the updates");
  expectSame(z, "preconditioned residual");
  expectSame(pNext, "next direction");
  for (int d = 0; d < 3; ++d)
    EXPECT_LE(ulpDistance(dots[0][d], dots[1][d]), 1) << "dot " << d << ": cpu " << dots[0][d] << " cuda "
                                                       << dots[1][d];
}

// Whole solves, where the CUDA backend keeps the solver's scalars on the
// device and issues every allowed iteration: it must stop where the CPU
// stops (the passes after convergence change nothing) and reach the same
// solution up to the one-ulp differences of its dot products.
TEST_F(CudaAgainstCpu, SolvesStopWhereTheCpuStops) {
  const int H = 37, W = 53, pitch = gpu().pitchFor(W);
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  // coupled = false: no neighbour terms, so block Jacobi is the exact
  // inverse and the solve converges in one iteration.
  auto system = [&](bool coupled) {
    std::vector<float> a = randomPlanes(H, W, 12, 41, -1.0f, 0.0f);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        const std::size_t i = static_cast<std::size_t>(y) * pitch + x;
        a[i] = 5.0f + a[i];
        a[3 * plane + i] = 6.0f - a[3 * plane + i];
        a[plane + i] = a[2 * plane + i] = 0.5f * a[plane + i];
        for (int k = 4; k < 12; ++k) a[k * plane + i] = coupled ? a[k * plane + i] : 0.0f;
      }
    return a;
  };
  struct Case {
    bool coupled;
    bool zeroRhs;
    int iterations;
  };
  for (const Case c : {Case{true, false, 40}, Case{false, false, 10}, Case{true, true, 10}}) {
    SCOPED_TRACE(testing::Message() << "coupled " << c.coupled << ", zero rhs " << c.zeroRhs);
    Twin A = twin(system(c.coupled));
    Twin rhs = c.zeroRhs ? zeros(2 * plane) : twin(randomPlanes(H, W, 2, 42, -10.0f, 10.0f));
    Twin x = zeros(2 * plane);
    Twin r = zeros(2 * plane), z = zeros(2 * plane), spare = zeros(2 * plane), p = zeros(2 * plane),
         q = zeros(2 * plane), pNext = zeros(2 * plane);
    int done[2] = {};
    for (Backend* be : {&cpu(), &gpu()}) {
      const int k = be == &gpu();
      auto P = [k](const Twin& t) { return k ? t.g() : t.c(); };
      const CGtmp tmp{P(r), P(z), P(spare), P(p), P(q), P(pNext)};
      gPCG(*be, P(A), P(rhs), P(x), P(x) + plane, H, W, pitch, c.iterations, tmp);
      done[k] = be->cgIterations();
    }
    EXPECT_EQ(done[0], done[1]);
    if (c.zeroRhs) {
      EXPECT_EQ(done[1], 0);
    } else if (!c.coupled) {
      EXPECT_EQ(done[1], 1);
    }
    const std::vector<float> a = fetch(cpu(), x.c(), x.floats), b = fetch(gpu(), x.g(), x.floats);
    float largest = 0.0f, worst = 0.0f;
    for (std::size_t i = 0; i < a.size(); ++i) {
      largest = std::max(largest, std::fabs(a[i]));
      worst = std::max(worst, std::fabs(a[i] - b[i]));
    }
    EXPECT_LE(worst, 1e-5f * std::max(largest, 1.0f)) << "largest component " << largest;
  }
}

TEST_F(CudaAgainstCpu, DotIsRepeatableAndAccurateOnCancellingSums) {
  // Row counts below, at and above the reduction's 256 threads; large terms
  // that cancel, so a sum kept in float would lose every digit.
  for (const int rows : {1, 255, 256, 257, 1500}) {
    const int W = 129, pitch = gpu().pitchFor(W);
    std::vector<float> xs = planes(rows, W, 1, [](int x, int y, int) { return ((x + y) % 2 ? 1e4f : -1e4f); });
    std::vector<float> ys = planes(rows, W, 1, [](int x, int y, int) { return 1.0f + 1e-3f * ((x * 7 + y) % 11); });
    Twin X = twin(xs), Y = twin(ys);
    double exact = 0.0;
    for (std::size_t i = 0; i < xs.size(); ++i) exact += static_cast<double>(xs[i] * ys[i]);
    const float first = gpu().dot(X.g(), Y.g(), rows, W, pitch);
    for (int again = 0; again < 5; ++again)
      EXPECT_TRUE(sameValue(first, gpu().dot(X.g(), Y.g(), rows, W, pitch))) << rows << " rows, call " << again;
    EXPECT_LE(ulpDistance(first, static_cast<float>(exact)), 1) << rows << " rows: " << first << " vs " << exact;
    EXPECT_LE(ulpDistance(first, cpu().dot(X.c(), Y.c(), rows, W, pitch)), 1) << rows << " rows";
  }
}

TEST_F(CudaAgainstCpu, MemoryAccountingPitchAndTransfersKeepRowsApart) {
  const std::size_t before = gpu().bytesInUse();
  {
    Buffer a = gpu().allocate(1000);
    Buffer b = gpu().allocate(0);  // never a null block
    EXPECT_TRUE(a);
    EXPECT_TRUE(b);
    EXPECT_GE(gpu().bytesInUse(), before + 1000 * sizeof(float));
    EXPECT_GE(gpu().peakBytes(), gpu().bytesInUse());
  }
  EXPECT_EQ(gpu().bytesInUse(), before) << "released blocks still counted";
  EXPECT_GT(gpu().availableBytes(), 0u);
  // A released block handed out again holds zeros, not its last contents.
  for (int round = 0; round < 2; ++round) {
    Buffer reused = gpu().allocate(1000);
    std::vector<float> seen(1000, -1.0f);
    gpu().download(seen.data(), reused.data(), 1000, 1000, 1);
    EXPECT_EQ(seen, std::vector<float>(1000, 0.0f)) << "round " << round;
    gpu().setValue(reused.data(), 1, 1000, 1000, 7.0f);
  }
  // One width, one pitch, a multiple of the device's row alignment.
  const int align = gpu().pitchFor(1);
  for (const int w : {1, 2, align - 1, align, align + 1, 1000}) {
    const int p = gpu().pitchFor(w);
    EXPECT_GE(p, w);
    EXPECT_EQ(p % align, 0) << w;
    EXPECT_LT(p - w, align) << w;
  }
  EXPECT_THROW(gpu().pitchFor(0), BackendError);
  // Dense rows into pitched rows and back: neither the padding nor the
  // following row is touched.
  const int H = 5, W = align + 3, pitch = gpu().pitchFor(W);
  std::vector<float> dense(static_cast<std::size_t>(H) * W);
  for (std::size_t i = 0; i < dense.size(); ++i) dense[i] = static_cast<float>(i) + 0.5f;
  Buffer img = gpu().allocate(static_cast<std::size_t>(H) * pitch);
  gpu().clear(img.data(), img.floats());
  gpu().upload(img.data(), pitch, dense.data(), W, H);
  std::vector<float> back(dense.size(), -1.0f), raw(img.floats(), -1.0f);
  gpu().download(back.data(), img.data(), pitch, W, H);
  EXPECT_EQ(back, dense);
  gpu().download(raw.data(), img.data(), static_cast<int>(img.floats()), static_cast<int>(img.floats()), 1);
  for (int y = 0; y < H; ++y)
    for (int x = W; x < pitch; ++x) ASSERT_EQ(raw[static_cast<std::size_t>(y) * pitch + x], 0.0f) << x << "," << y;
  // copy moves whole runs, clear zeroes them.
  Buffer other = gpu().allocate(img.floats());
  gpu().copy(other.data(), img.data(), img.floats());
  gpu().download(back.data(), other.data(), pitch, W, H);
  EXPECT_EQ(back, dense);
  // Overlapping ranges move like memmove, in both directions.
  std::vector<float> run(64);
  for (int i = 0; i < 64; ++i) run[i] = static_cast<float>(i);
  Buffer shifted = gpu().allocate(64);
  gpu().upload(shifted.data(), 64, run.data(), 64, 1);
  gpu().copy(shifted.data() + 8, shifted.data(), 50);
  gpu().copy(shifted.data(), shifted.data() + 10, 40);
  std::vector<float> expected = run;
  std::copy_backward(expected.begin(), expected.begin() + 50, expected.begin() + 58);
  std::copy(expected.begin() + 10, expected.begin() + 50, expected.begin());
  std::vector<float> moved(64);
  gpu().download(moved.data(), shifted.data(), 64, 64, 1);
  EXPECT_EQ(moved, expected);
  gpu().clear(other.data(), img.floats());
  gpu().download(back.data(), other.data(), pitch, W, H);
  EXPECT_EQ(back, std::vector<float>(dense.size(), 0.0f));
}

}  // namespace
}  // namespace vemo
