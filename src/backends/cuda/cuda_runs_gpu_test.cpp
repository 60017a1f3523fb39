// The CUDA stage executors beside the flow path (SOR, energy rules, 2-D
// filter, descriptor matching) and whole runs of the method, against the
// CPU backend.
#include "backends/cuda/cuda_gpu_test_fixture.h"

namespace vemo {
namespace {

using cuda_testing::CudaAgainstCpu;
using cuda_testing::IntTwin;
using cuda_testing::sameValue;

TEST_F(CudaAgainstCpu, SorEnergyRulesAndDenseFilterAgreeBitForBit) {
  const std::unique_ptr<ExtraStages> gx = makeCudaExtraStages(gpu());
  const std::unique_ptr<ExtraStages> cx = makeExtraStages(cpu());
  ASSERT_NE(gx, nullptr);
  EXPECT_THROW(makeCudaExtraStages(cpu()), BackendError) << "host memory handed to device kernels";
  const int H = 26, W = 35, pitch = gpu().pitchFor(W);
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  // A dominant system with singular blocks; several sweeps of both colours,
  // so that a pass reading a value updated in the same pass would show.
  std::vector<float> a = randomPlanes(H, W, 12, 41, -1.0f, 0.0f);
  for (std::size_t i = 0; i < plane; ++i) {
    const bool singular = i % 23 == 0;
    a[i] = singular ? 0.0f : 5.0f + a[i];
    a[3 * plane + i] = singular ? 0.0f : 5.5f + a[3 * plane + i];
    a[2 * plane + i] = singular ? 0.0f : a[2 * plane + i];
  }
  Twin A = twin(a), rhs = twin(randomPlanes(H, W, 2, 42, -5.0f, 5.0f));
  Twin du = twin(randomPlanes(H, W, 1, 43, -1.0f, 1.0f)), dv = twin(randomPlanes(H, W, 1, 44, -1.0f, 1.0f));
  for (int sweep = 0; sweep < 4; ++sweep)
    for (int term = 0; term < 2; ++term) {
      cx->sorIteration(A.c(), rhs.c(), du.c(), dv.c(), H, W, term, 1.8f, pitch);
      gx->sorIteration(A.g(), rhs.g(), du.g(), dv.g(), H, W, term, 1.8f, pitch);
    }
  expectSame(du, "SOR du");
  expectSame(dv, "SOR dv");
  EXPECT_THROW(gx->sorIteration(A.g(), rhs.g(), du.g(), dv.g(), H, W, 2, 1.8f, pitch), BackendError);
  // Element-wise energy rules, squaring in place as the energy does.
  Twin p = twin(randomPlanes(H, W, 1, 45, -4.0f, 4.0f)), q = twin(randomPlanes(H, W, 1, 46, -4.0f, 4.0f));
  Twin d = zeros(plane);
  for (ExtraStages* x : {cx.get(), gx.get()}) {
    const bool c = x == cx.get();
    auto P = [c](const Twin& t) { return c ? t.c() : t.g(); };
    (c ? cpu() : gpu()).diff(P(d), P(p), P(q), H, W, pitch);
    x->mult(P(d), P(d), P(d), H, W, pitch);
    x->psi(P(d), H, W, pitch);
  }
  expectSame(d, "energy rules");
  // Dense 2-D correlation: a separable one-column mask, a full 3 x 5 mask,
  // both in place, on a plane whose row stride is its width.
  const float column[7] = {0.05f, 0.1f, 0.2f, 0.3f, 0.2f, 0.1f, 0.05f};
  float full[15];
  for (int i = 0; i < 15; ++i) full[i] = 0.01f * (i + 1) * ((i % 3) ? 1.0f : -1.0f);
  std::vector<float> dense(static_cast<std::size_t>(H) * W);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) dense[static_cast<std::size_t>(y) * W + x] = std::fmod(37.0f * x + 11.0f * y, 255.0f);
  Twin img = twin(dense);
  cx->convolve2d(img.c(), img.c(), H, W, column, 7, 1);
  gx->convolve2d(img.g(), img.g(), H, W, column, 7, 1);
  expectSame(img, "separable 2-D correlation");
  cx->convolve2d(img.c(), img.c(), H, W, full, 3, 5);
  gx->convolve2d(img.g(), img.g(), H, W, full, 3, 5);
  expectSame(img, "full 2-D correlation");
}

TEST_F(CudaAgainstCpu, MatchingStagesAgreeWithTheCpu) {
  const std::unique_ptr<MatchingStages> cm = makeMatchingStages(cpu());
  const std::unique_ptr<MatchingStages> gm = makeCudaMatchingStages(gpu());
  ASSERT_NE(gm, nullptr);
  EXPECT_THROW(makeCudaMatchingStages(cpu()), BackendError) << "host memory handed to device kernels";
  const int H = 100, W = 140, pitch = gpu().pitchFor(W), nOri = kHogBins;
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  auto scene = [](float x, float y, int c) {
    const int checker = (static_cast<int>(x) / 9 + static_cast<int>(y) / 7) % 2;
    return 120.0f + 80.0f * std::sin(0.31f * x + c) * std::cos(0.23f * y) + checker * 40.0f;
  };
  Twin f1 = twin(planes(H, W, 3, [&](int x, int y, int c) { return scene(x, y, c); }));
  Twin f2 = twin(planes(H, W, 3, [&](int x, int y, int c) { return scene(x - 6.0f, y - 3.0f, c); }));
  Twin hog = zeros(nOri * plane), conf = zeros(plane), energy = zeros(plane);
  cm->computeHOG(f1.c(), hog.c(), 3, nOri, H, W, pitch);
  gm->computeHOG(f1.g(), hog.g(), 3, nOri, H, W, pitch);
  // A gradient orientation on a bin boundary may round differently through
  // the device's atan2 and flip one bin, spreading over a 7 x 7 box.
  expectMostlySame(hog, "HOG", 0.01);
  cm->computeEnergy(hog.c(), energy.c(), H, W, pitch, nOri);
  gm->computeEnergy(hog.g(), energy.g(), H, W, pitch, nOri);
  expectMostlySame(energy, "HOG energy", 0.01);
  cm->computeConfidence(f1.c(), conf.c(), H, W, pitch, 3);
  gm->computeConfidence(f1.g(), conf.g(), H, W, pitch, 3);
  expectSame(conf, "cornerness");
  Twin average = zeros(1);
  cm->average2D(conf.c(), H, W, pitch, average.c());
  gm->average2D(conf.g(), H, W, pitch, average.g());
  expectSame(average, "mean cornerness");

  // The search alone, from identical inputs: the CPU's fields in both.
  auto same = [&](const Twin& t) { return twin(fetch(cpu(), t.c(), t.floats)); };
  Twin hog1 = same(hog), energy1 = same(energy), corner = same(conf);
  Twin hog2 = zeros(nOri * plane), energy2 = zeros(plane);
  cm->computeHOG(f2.c(), hog2.c(), 3, nOri, H, W, pitch);
  cm->computeEnergy(hog2.c(), energy2.c(), H, W, pitch, nOri);
  Twin hog2s = same(hog2), energy2s = same(energy2);
  // Simulated: every third point of the grid (each point searches up to
  // 116 x 76 candidates, about 10^5 simulated instructions a candidate row).
  const int step = cuda_testing::simulatedGpu() ? 18 : 6;
  std::vector<int> xs, ys;
  for (int y = 0; y < H; y += step)
    for (int x = 0; x < W; x += step) {
      xs.push_back(x);
      ys.push_back(y);
    }
  const int n = static_cast<int>(xs.size());
  auto ints = [&](const std::vector<int>& v) {
    IntTwin t{cm->allocateInts(v.size()), gm->allocateInts(v.size())};
    cm->uploadInts(t.cpu.data(), v.data(), v.size());
    gm->uploadInts(t.gpu.data(), v.data(), v.size());
    return t;
  };
  auto intsOf = [&](Backend& b, const int* p) {
    std::vector<int> v(n);
    b.download(reinterpret_cast<float*>(v.data()), reinterpret_cast<const float*>(p), n, n, 1);
    return v;
  };
  const IntTwin mx = ints(xs), my = ints(ys), rx = ints(std::vector<int>(n, -7)), ry = ints(std::vector<int>(n, -7));
  Twin d1 = twin(std::vector<float>(n, -1.0f)), d2 = twin(std::vector<float>(n, -1.0f));
  for (const int checkCorner : {0, 1}) {
    for (const bool onGpu : {false, true}) {
      auto P = [onGpu](const Twin& t) { return onGpu ? t.g() : t.c(); };
      const HogMatchInputs in{P(f1),     P(f2),  P(hog1), P(hog2s), P(corner), checkCorner, P(energy1),
                              P(energy2s), P(average), H, W, pitch};
      const HogMatchResults out{onGpu ? rx.gpu.data() : rx.cpu.data(), onGpu ? ry.gpu.data() : ry.cpu.data(),
                                P(d1), P(d2)};
      (onGpu ? gm : cm)->hogMatch(in, onGpu ? mx.gpu.data() : mx.cpu.data(), onGpu ? my.gpu.data() : my.cpu.data(),
                                  n, out);
    }
    EXPECT_EQ(intsOf(cpu(), rx.cpu.data()), intsOf(gpu(), rx.gpu.data())) << "match x, corner test " << checkCorner;
    EXPECT_EQ(intsOf(cpu(), ry.cpu.data()), intsOf(gpu(), ry.gpu.data())) << "match y, corner test " << checkCorner;
    expectSame(d1, "best distance");
    expectSame(d2, "second-best distance");
  }
  // The consistency check writes only the points whose backward match comes
  // back within one pixel; grid points outside the frame are refused.
  std::vector<int> bx(n), by(n), fx(n), fy(n);
  for (int i = 0; i < n; ++i) {
    bx[i] = xs[i] + (i % 5) - 2;
    by[i] = ys[i] + (i % 3) - 1;
    fx[i] = xs[i] + 6;
    fy[i] = ys[i] - 3;
  }
  const IntTwin backX = ints(bx), backY = ints(by), fwdX = ints(fx), fwdY = ints(fy);
  Twin confOut = zeros(plane), u = zeros(plane), v = zeros(plane);
  Twin fd = twin(planes(1, n, 1, [](int i, int, int) { return 10.0f + i % 4; }));
  Twin fd2 = twin(planes(1, n, 1, [](int i, int, int) { return i % 7 == 0 ? 2e9f : 12.5f + i % 3; }));
  cm->consistencyCheck(mx.cpu.data(), my.cpu.data(), fwdX.cpu.data(), fwdY.cpu.data(), backX.cpu.data(),
                       backY.cpu.data(), fd.c(), fd2.c(), n, confOut.c(), u.c(), v.c(), H, W, pitch, 1);
  gm->consistencyCheck(mx.gpu.data(), my.gpu.data(), fwdX.gpu.data(), fwdY.gpu.data(), backX.gpu.data(),
                       backY.gpu.data(), fd.g(), fd2.g(), n, confOut.g(), u.g(), v.g(), H, W, pitch, 1);
  expectSame(confOut, "match weights");
  expectSame(u, "match u");
  expectSame(v, "match v");
  EXPECT_THROW(gm->consistencyCheck(fwdX.gpu.data(), fwdY.gpu.data(), fwdX.gpu.data(), fwdY.gpu.data(),
                                    backX.gpu.data(), backY.gpu.data(), fd.g(), fd2.g(), n, confOut.g(), u.g(),
                                    v.g(), H, W, pitch, 1),
               BackendError)
      << "grid points shifted past the right edge";
}

TEST_F(CudaAgainstCpu, WholeRunFollowsTheCpuFlow) {
  // A textured scene moving by (1.6, -0.8) pixels, no matches. Simulated:
  // three levels instead of about forty, fewer iterations.
  const int H = 72, W = 96, pitch = gpu().pitchFor(W);
  const bool simulated = cuda_testing::simulatedGpu();
  const float eta = simulated ? 0.5f : 0.95f;
  const int fixedPoint = simulated ? 3 : 5, solver = simulated ? 5 : 10;
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  auto scene = [](float x, float y, int c) {
    return 128.0f + 60.0f * std::sin(0.21f * x + 0.5f * c) * std::cos(0.17f * y) + 30.0f * std::sin(0.05f * x * y / 8);
  };
  Twin f1 = twin(planes(H, W, 3, [&](int x, int y, int c) { return scene(x, y, c); }));
  Twin f2 = twin(planes(H, W, 3, [&](int x, int y, int c) { return scene(x - 1.6f, y + 0.8f, c); }));
  Twin geo = zeros(plane);
  ::testing::internal::CaptureStdout();
  const FlowPlanes fc = gVariationalFlowVemo(cpu(), f1.c(), f2.c(), geo.c(), geo.c(), geo.c(), 1, H, W, pitch, 3,
                                             0.0f, 30.0f, 300.0f, 5.0f, eta, fixedPoint, solver);
  const FlowPlanes fg = gVariationalFlowVemo(gpu(), f1.g(), f2.g(), geo.g(), geo.g(), geo.g(), 1, H, W, pitch, 3,
                                             0.0f, 30.0f, 300.0f, 5.0f, eta, fixedPoint, solver);
  ::testing::internal::GetCapturedStdout();
  ASSERT_EQ(fc.pitch, fg.pitch);
  std::vector<float> uc(static_cast<std::size_t>(H) * W), vc(uc.size()), ug(uc.size()), vg(uc.size());
  cpu().download(uc.data(), fc.u.data(), fc.pitch, W, H);
  cpu().download(vc.data(), fc.v.data(), fc.pitch, W, H);
  gpu().download(ug.data(), fg.u.data(), fg.pitch, W, H);
  gpu().download(vg.data(), fg.v.data(), fg.pitch, W, H);
  double meanDiff = 0.0, maxDiff = 0.0, meanU = 0.0;
  for (std::size_t i = 0; i < uc.size(); ++i) {
    const double d = std::hypot(uc[i] - ug[i], vc[i] - vg[i]);
    ASSERT_TRUE(std::isfinite(ug[i]) && std::isfinite(vg[i])) << "pixel " << i;
    meanDiff += d;
    maxDiff = std::max(maxDiff, d);
    meanU += ug[i];
  }
  meanDiff /= uc.size();
  meanU /= uc.size();
  std::printf("cuda vs cpu flow: mean difference %.3g px, largest %.3g px; mean u %.3f\n", meanDiff, maxDiff, meanU);
  // The solver's dot products may differ by an ulp, which shifts its steps
  // slightly; the flows stay within a thousandth of a pixel on average.
  EXPECT_LT(meanDiff, 1e-3);
  EXPECT_LT(maxDiff, 5e-2);
  EXPECT_NEAR(meanU, 1.6, 0.3) << "the run did not recover the motion";
}

TEST_F(CudaAgainstCpu, WholeMethodWithMatchingFollowsTheCpu) {
  // A textured square moving by (14, 9) over a still textured background:
  // too far for the variational term alone, so the matches carry it.
  // Simulated: a smaller square in a smaller frame (the search's candidates
  // grow with the frame's area), fewer levels and iterations.
  const bool simulated = cuda_testing::simulatedGpu();
  const int H = simulated ? 64 : 120, W = simulated ? 96 : 160, pitch = gpu().pitchFor(W);
  const int left = simulated ? 24 : 50, top = simulated ? 14 : 35, side = simulated ? 32 : 50;
  const int tall = simulated ? 26 : 45;
  const float eta = simulated ? 0.5f : 0.95f;
  const int fixedPoint = simulated ? 3 : 5, solver = simulated ? 5 : 10;
  const std::size_t plane = static_cast<std::size_t>(pitch) * H;
  auto inSquare = [=](int x, int y) { return x >= left && x < left + side && y >= top && y < top + tall; };
  auto texture = [](int x, int y, int c, float f) {
    return 128.0f + 70.0f * std::sin(f * x + 0.7f * c) * std::cos(1.3f * f * y) + ((x / 5 + y / 4) % 2) * 30.0f;
  };
  Twin f1 = twin(planes(H, W, 3, [&](int x, int y, int c) {
    return inSquare(x, y) ? texture(x, y, c, 0.45f) : texture(x, y, c, 0.21f);
  }));
  Twin f2 = twin(planes(H, W, 3, [&](int x, int y, int c) {
    return inSquare(x - 14, y - 9) ? texture(x - 14, y - 9, c, 0.45f) : texture(x, y, c, 0.21f);
  }));
  Twin geoU = zeros(plane), geoV = zeros(plane), geoConf = zeros(plane);
  ::testing::internal::CaptureStdout();
  const std::unique_ptr<MatchingStages> gm = makeCudaMatchingStages(gpu());
  gCreateAndMatchHOG(cpu(), f1.c(), f2.c(), geoU.c(), geoV.c(), geoConf.c(), H, W, pitch, 3);
  gCreateAndMatchHOG(gpu(), *gm, f1.g(), f2.g(), geoU.g(), geoV.g(), geoConf.g(), H, W, pitch, 3);
  // Matches rest on HOG fields that may differ at rare bin boundaries.
  expectMostlySame(geoU, "match u", 0.002);
  expectMostlySame(geoConf, "match weights", 0.002);
  const FlowPlanes fc = gVariationalFlowVemo(cpu(), f1.c(), f2.c(), geoU.c(), geoV.c(), geoConf.c(), 1, H, W, pitch,
                                             3, 0.0f, 30.0f, 300.0f, 5.0f, eta, fixedPoint, solver);
  const FlowPlanes fg = gVariationalFlowVemo(gpu(), f1.g(), f2.g(), geoU.g(), geoV.g(), geoConf.g(), 1, H, W, pitch,
                                             3, 0.0f, 30.0f, 300.0f, 5.0f, eta, fixedPoint, solver);
  ::testing::internal::GetCapturedStdout();
  std::vector<float> uc(static_cast<std::size_t>(H) * W), vc(uc.size()), ug(uc.size()), vg(uc.size());
  cpu().download(uc.data(), fc.u.data(), fc.pitch, W, H);
  cpu().download(vc.data(), fc.v.data(), fc.pitch, W, H);
  gpu().download(ug.data(), fg.u.data(), fg.pitch, W, H);
  gpu().download(vg.data(), fg.v.data(), fg.pitch, W, H);
  double meanDiff = 0.0, squareU = 0.0;
  int squarePixels = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * W + x;
      meanDiff += std::hypot(uc[i] - ug[i], vc[i] - vg[i]);
      if (inSquare(x - 14, y - 9) && inSquare(x, y)) {
        squareU += ug[i];
        ++squarePixels;
      }
    }
  meanDiff /= uc.size();
  std::printf("cuda vs cpu flow with matching: mean difference %.3g px\n", meanDiff);
  EXPECT_LT(meanDiff, 0.01);
  ASSERT_GT(squarePixels, 0);
  EXPECT_NEAR(squareU / squarePixels, 14.0, 3.0) << "the matches did not carry the square";
}

}  // namespace
}  // namespace vemo
