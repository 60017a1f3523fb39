// The public API against the pipeline it wraps: the same bits, the same
// bits from several Engines at once, and refusals before any work.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "backends/cpu/cpu_backend.h"
#include "driver/pair_flow.h"
#include "driver/presets.h"
#include "driver/run_flow.h"
#include "image/synthetic.h"
#include "vemo/vemo.hpp"

namespace {

// Interleaved samples of a planar frame, as a caller would hold them.
template <typename T>
std::vector<T> interleaved(const CTensor<float>& frame, float scale = 1.0f) {
  std::vector<T> out(frame.planeSize() * 3);
  for (std::size_t i = 0; i < frame.planeSize(); ++i)
    for (int c = 0; c < 3; ++c) out[i * 3 + c] = static_cast<T>(frame.data[c * frame.planeSize() + i] * scale);
  return out;
}

// The pipeline's own result for the same frames and parameters.
CTensor<float> pipelineFlow(CTensor<float> a, CTensor<float> b, const vemo::Parameters& p) {
  CTensor<float> flow;
  ::testing::internal::CaptureStdout();
  runFlowGPU(a, b, flow, p.sigma, p.alpha, p.beta, p.gamma, p.eta, p.fixed_point_iters, p.solver_iters);
  ::testing::internal::GetCapturedStdout();
  return flow;
}

bool sameBits(const vemo::Flow& flow, const CTensor<float>& planar) {
  if (flow.width() != planar.xSize || flow.height() != planar.ySize) return false;
  const std::size_t plane = planar.planeSize();
  for (std::size_t i = 0; i < plane; ++i)
    if (std::memcmp(&flow.data()[2 * i], &planar.data[i], 4) != 0 ||
        std::memcmp(&flow.data()[2 * i + 1], &planar.data[plane + i], 4) != 0)
      return false;
  return true;
}

vemo::Parameters quick() {
  vemo::Parameters p;
  p.eta = 0.6f;
  p.fixed_point_iters = 2;
  p.solver_iters = 4;
  return p;
}

// A preset's inner choices reach the pipeline with the Parameters, and the
// fields a caller changes override the preset's values.
TEST(PublicEngine, PresetsCarryTheirInnerChoicesAndChangedFieldsOverrideThem) {
  EXPECT_EQ(vemo::Parameters::preset_names(), (std::vector<std::string>{"ultrafast", "fast", "default", "quality"}));
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(64, 48, 3.0f, 1.5f, 7, f1, f2, truth);
  vemo::Parameters p = vemo::Parameters::from_preset("fast");
  p.alpha = 20.0f;
  FlowParameters expected = findPreset("fast").parameters;
  expected.alpha = 20.0f;
  ::testing::internal::CaptureStdout();
  vemo::CpuBackend backend;
  const CTensor<float> direct = flowBetween(backend, f1, f2, p.sigma, expected);
  ::testing::internal::GetCapturedStdout();
  const std::vector<float> a = interleaved<float>(f1), b = interleaved<float>(f2);
  vemo::Engine engine("cpu", 2);
  EXPECT_TRUE(sameBits(engine.flow(vemo::ImageView(a.data(), 64, 48, 3), vemo::ImageView(b.data(), 64, 48, 3), p),
                       direct));
}

TEST(PublicEngine, GivesThePipelineBitsForEveryPixelLayoutAndPrintsNothing) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(48, 36, 2.5f, -1.0f, 5, f1, f2, truth);
  // Whole numbers, so that uint8 and float32 samples describe the same frames.
  for (CTensor<float>* f : {&f1, &f2})
    for (std::size_t i = 0; i < f->elements(); ++i) f->data[i] = std::round(f->data[i]);
  const vemo::Parameters p = quick();
  const CTensor<float> expected = pipelineFlow(f1, f2, p);

  vemo::Engine engine("cpu", 2);
  EXPECT_EQ(engine.device(), "cpu");
  // float32 interleaved, and uint8 in padded rows.
  const std::vector<float> a = interleaved<float>(f1), b = interleaved<float>(f2);
  std::vector<std::uint8_t> padded(36 * 160);
  const std::vector<std::uint8_t> b8 = interleaved<std::uint8_t>(f2);
  for (int y = 0; y < 36; ++y) std::memcpy(&padded[y * 160], &b8[y * 48 * 3], 48 * 3);
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  const vemo::Flow fromFloat = engine.flow(vemo::ImageView(a.data(), 48, 36, 3), vemo::ImageView(b.data(), 48, 36, 3), p);
  const vemo::Flow mixed = engine.flow(vemo::ImageView(a.data(), 48, 36, 3), vemo::ImageView(padded.data(), 48, 36, 3, 160), p);
  const vemo::FlowPair pair = engine.flow_pair(vemo::ImageView(a.data(), 48, 36, 3), vemo::ImageView(b.data(), 48, 36, 3), p);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(sameBits(fromFloat, expected));
  EXPECT_TRUE(sameBits(mixed, expected));
  EXPECT_TRUE(sameBits(pair.forward, expected));
  EXPECT_TRUE(sameBits(pair.backward, pipelineFlow(f2, f1, p)));
  EXPECT_EQ(pair.occluded.size(), 48u * 36u);
  // The stage times are those of the last call alone, parts within the whole.
  const vemo::Timings t = engine.last_timings();
  EXPECT_GT(t.matching, 0.0);
  EXPECT_GE(t.total, t.matching + t.variational);

  // uint16 samples are scaled as 16-bit PNG frames are read.
  std::vector<std::uint16_t> a16(a.size()), b16(b.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    a16[i] = static_cast<std::uint16_t>(a[i] * 257.0f);
    b16[i] = static_cast<std::uint16_t>(b[i] * 257.0f);
  }
  CTensor<float> s1(f1), s2(f2);
  for (std::size_t i = 0; i < s1.elements(); ++i) {
    s1.data[i] = static_cast<float>(static_cast<std::uint16_t>(f1.data[i] * 257.0f)) * (255.0f / 65535.0f);
    s2.data[i] = static_cast<float>(static_cast<std::uint16_t>(f2.data[i] * 257.0f)) * (255.0f / 65535.0f);
  }
  EXPECT_TRUE(sameBits(engine.flow(vemo::ImageView(a16.data(), 48, 36, 3), vemo::ImageView(b16.data(), 48, 36, 3), p),
                       pipelineFlow(s1, s2, p)));
}

TEST(PublicEngine, ConcurrentEnginesGiveTheBitsOfSerialRuns) {
  std::vector<CTensor<float>> first(4), second(4);
  std::vector<std::vector<float>> a(4), b(4);
  std::vector<CTensor<float>> expected(4);
  for (int k = 0; k < 4; ++k) {
    CTensor<float> truth;
    NSynthetic::makeShiftedPair(120, 90, 1.0f + k, 0.5f * k, 30 + k, first[k], second[k], truth);
    a[k] = interleaved<float>(first[k]);
    b[k] = interleaved<float>(second[k]);
  }
  vemo::Parameters p = quick();
  for (int k = 0; k < 4; ++k) expected[k] = pipelineFlow(first[k], second[k], p);
  std::vector<vemo::Flow> results(4);
  std::vector<std::thread> threads;
  for (int k = 0; k < 4; ++k)
    threads.emplace_back([&, k] {
      vemo::Engine engine("cpu", 1 + k % 2);
      results[k] = engine.flow(vemo::ImageView(a[k].data(), 120, 90, 3), vemo::ImageView(b[k].data(), 120, 90, 3), p);
    });
  for (std::thread& t : threads) t.join();
  for (int k = 0; k < 4; ++k) EXPECT_TRUE(sameBits(results[k], expected[k])) << "engine " << k;
}

// The message of the exception `call` throws, or "" when it throws none.
template <class E, class F>
std::string refusal(F&& call) {
  try {
    call();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

TEST(PublicEngine, RefusesBadInputWithAMessageBeforeAnyWork) {
  vemo::Engine engine("cpu");
  std::vector<float> pixels(10 * 8 * 3, 100.0f);
  const vemo::ImageView good(pixels.data(), 10, 8, 3);
  auto flowOf = [&](vemo::ImageView x, vemo::ImageView y, vemo::Parameters p = vemo::Parameters()) {
    return [&engine, x, y, p] { engine.flow(x, y, p); };
  };
  vemo::ImageView null = good;
  null.data = nullptr;
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(null, good)).find("frame1 has no pixels"), std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(good, vemo::ImageView(pixels.data(), 1, 8, 3))).find("frame2 is 1 x 8"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(good, vemo::ImageView(pixels.data(), 10, 7, 3))).find("differ in size"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(good, vemo::ImageView(pixels.data(), 10, 8, 3, 100))).find("row stride"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(good, vemo::ImageView(pixels.data(), 10, 8, 4))).find("4 channels"),
            std::string::npos);
  std::vector<float> nan(pixels);
  nan[7] = NAN;
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(good, vemo::ImageView(nan.data(), 10, 8, 3))).find("NaN"),
            std::string::npos);
  vemo::Parameters p;
  p.eta = 1.0f;
  EXPECT_NE(refusal<vemo::InvalidInput>(flowOf(good, good, p)).find("eta cannot be 1"), std::string::npos);
  p = vemo::Parameters();
  p.solver_iters = -1;
  EXPECT_EQ(refusal<vemo::InvalidInput>(flowOf(good, good, p)), "solver_iters must be a whole number from 0 to 10000, not -1");
  EXPECT_NE(refusal<vemo::InvalidInput>([] { vemo::Parameters::from_preset("fastest"); }).find("default"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>([] { vemo::Engine("gpu"); }).find("auto, cpu, cuda or cuda:N"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>([] { vemo::Engine("cpu", -2); }).find("threads"), std::string::npos);
  // The refusals leave the Engine working.
  EXPECT_TRUE(engine.usable());
  EXPECT_EQ(engine.flow(good, good, quick()).width(), 10);
}

TEST(PublicFiles, FlowAndPicturesRoundTripAndFileErrorsAreIoErrors) {
  const std::string dir = ::testing::TempDir();
  vemo::Flow flow(3, 2);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) {
      flow.u(x, y) = 0.5f * x - y;
      flow.v(x, y) = 1e9f * (x == 2 && y == 1);
    }
  vemo::write_flo(dir + "/api.flo", flow);
  const vemo::Flow back = vemo::read_flo(dir + "/api.flo");
  ASSERT_EQ(back.size(), flow.size());
  EXPECT_EQ(std::memcmp(back.data(), flow.data(), flow.size() * 4), 0);

  const vemo::Image rgb = vemo::flow_to_rgb(flow, 2.0f);
  EXPECT_EQ(rgb.type(), vemo::PixelType::UInt8);
  vemo::write_image(dir + "/api.png", rgb.view());
  const vemo::Image read = vemo::read_image(dir + "/api.png");
  ASSERT_EQ(read.width(), 3);
  const float* samples = static_cast<const float*>(read.data());
  for (std::size_t i = 0; i < 18; ++i) EXPECT_EQ(samples[i], static_cast<const std::uint8_t*>(rgb.data())[i]);

  const vemo::Evaluation e = vemo::evaluate(flow, flow);
  EXPECT_EQ(e.known_pixels, 5u);
  EXPECT_EQ(e.epe, 0.0);

  EXPECT_NE(refusal<vemo::IoError>([&] { vemo::read_flo(dir + "/missing.flo"); }).find("missing.flo"), std::string::npos);
  EXPECT_NE(refusal<vemo::IoError>([&] { vemo::read_flo(dir + "/api.png"); }).find("not a .flo"), std::string::npos);
  EXPECT_NE(refusal<vemo::IoError>([&] { vemo::read_image(dir + "/api.flo"); }).find("Could not decode"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>([&] { vemo::write_image(dir + "/x.bmp", rgb.view()); }).find(".png"),
            std::string::npos);
  EXPECT_NE(refusal<vemo::InvalidInput>([&] { vemo::evaluate(flow, vemo::Flow(2, 2)); }).find("truth is 2 x 2"),
            std::string::npos);
}

}  // namespace
