// The preset table: default is the method itself, every other preset
// changes the flow, and none depends on the thread count.
#include "driver/presets.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "backends/cpu/cpu_backend.h"
#include "common/stage_lines.h"
#include "driver/pair_flow.h"
#include "image/synthetic.h"

namespace {

bool identical(const CTensor<float>& a, const CTensor<float>& b) {
  return a.xSize == b.xSize && a.ySize == b.ySize && a.zSize == b.zSize &&
         std::memcmp(a.data, b.data, sizeof(float) * a.xSize * a.ySize * a.zSize) == 0;
}

CTensor<float> presetFlow(const FlowPreset& preset, const CTensor<float>& f1, const CTensor<float>& f2,
                          int threads) {
  const int before = omp_get_max_threads();
  omp_set_num_threads(threads);
  vemo::CpuBackend backend;
  CTensor<float> flow = flowBetween(backend, f1, f2, preset.sigma, preset.parameters);
  omp_set_num_threads(before);
  return flow;
}

// Every value of the method, knobs included.
void expectSameMethod(const FlowParameters& a, const FlowParameters& b) {
  EXPECT_EQ(a.alpha, b.alpha);
  EXPECT_EQ(a.beta, b.beta);
  EXPECT_EQ(a.gamma, b.gamma);
  EXPECT_EQ(a.eta, b.eta);
  EXPECT_EQ(a.fixedPointIterations, b.fixedPointIterations);
  EXPECT_EQ(a.solverIterations, b.solverIterations);
  EXPECT_EQ(a.matching.gridStep, b.matching.gridStep);
  EXPECT_EQ(a.matching.radius, b.matching.radius);
  EXPECT_EQ(a.matching.downscale, b.matching.downscale);
  const vemo::VariationalSettings &x = a.variational, &y = b.variational;
  EXPECT_EQ(x.extraPasses, y.extraPasses);
  EXPECT_EQ(x.finestLevel, y.finestLevel);
  EXPECT_EQ(x.extraFixedPointIterations, y.extraFixedPointIterations);
  EXPECT_EQ(x.smoothnessEpsilon, y.smoothnessEpsilon);
}

}  // namespace

TEST(Presets, DefaultIsTheMethodAndAMisspeltNameListsTheValidOnes) {
  const FlowPreset& d = findPreset("default");
  EXPECT_EQ(d.sigma, 0.8f);
  expectSameMethod(d.parameters, FlowParameters{30.0f, 300.0f, 5.0f, 0.95f, 5, 10});
  ASSERT_EQ(presetNames(), "ultrafast, fast, default, quality");
  try {
    findPreset("Fast");
    FAIL() << "an unknown preset was accepted";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("ultrafast, fast, default, quality"), std::string::npos) << e.what();
  }
}

// Frames large enough that the full-size passes split into several pieces
// of rows (both threads work on every stage) and that the matching finds
// the shift on its grid at every reduction a preset uses.
TEST(Presets, EachPresetChangesTheFlowAndKeepsItsBitsForAnyThreadCount) {
  CTensor<float> f1, f2, truth;
  NSynthetic::makeShiftedPair(256, 192, 9.5f, -4.25f, 5, f1, f2, truth);
  vemo::setStageLines(false);
  const CTensor<float> reference = presetFlow(findPreset("default"), f1, f2, 2);
  for (const FlowPreset& preset : flowPresets()) {
    if (preset.name == "default") continue;
    const CTensor<float> one = presetFlow(preset, f1, f2, 1);
    const CTensor<float> two = presetFlow(preset, f1, f2, 2);
    EXPECT_TRUE(identical(one, two)) << preset.name << " depends on the thread count";
    EXPECT_FALSE(identical(one, reference)) << preset.name << " computes default's flow";
    // Still the motion of the pair, well inside the frame.
    EXPECT_NEAR(one(128, 96, 0), 9.5f, 0.5f) << preset.name;
    EXPECT_NEAR(one(128, 96, 1), -4.25f, 0.5f) << preset.name;
  }
  vemo::setStageLines(true);
}
