// Error measures and pictures of flow fields.
#include "driver/flow_metrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "driver/flow_picture.h"
#include "image/exceptions.h"
#include "support/flow_fields.h"

namespace {

using vemotest::constantFlow;

}  // namespace

TEST(FlowMetrics, UnknownTruthIsLeftOutAndBandsFollowTheTrueMotion) {
  // Four pixels of 2 x 2, truth lengths 5, 20, 50 and unknown.
  CTensor<float> truth = constantFlow(2, 2, 0.0f, 0.0f);
  truth(0, 0, 0) = 3.0f, truth(0, 0, 1) = 4.0f;   // |t| = 5: band < 10
  truth(1, 0, 0) = 20.0f;                          // band 10..40
  truth(0, 1, 1) = -50.0f;                         // band > 40
  truth(1, 1, 0) = 1e9f;                           // unknown
  CTensor<float> flow = truth;
  flow(0, 0, 0) += 0.5f;                           // error 0.5
  flow(1, 0, 1) += 2.0f;                           // error 2
  flow(0, 1, 0) += 4.0f;                           // error 4
  flow(1, 1, 0) = 123.0f;                          // ignored
  FlowMetrics m = evaluateFlow(flow, truth);
  EXPECT_EQ(m.known, 3u);
  EXPECT_NEAR(m.epe, (0.5 + 2.0 + 4.0) / 3.0, 1e-6);
  EXPECT_NEAR(m.over1, 2.0 / 3.0, 1e-12);
  EXPECT_NEAR(m.over3, 1.0 / 3.0, 1e-12);
  EXPECT_NEAR(m.bandEpe[0], 0.5, 1e-6);
  EXPECT_NEAR(m.bandEpe[1], 2.0, 1e-6);
  EXPECT_NEAR(m.bandEpe[2], 4.0, 1e-6);
  EXPECT_EQ(m.bandPixels[0] + m.bandPixels[1] + m.bandPixels[2], 3u);
  EXPECT_GT(m.angularError, 0.0);

  // A non-finite truth component is unknown too, and the angular measures
  // skip it rather than turning NaN.
  truth(1, 1, 0) = std::numeric_limits<float>::quiet_NaN();
  m = evaluateFlow(flow, truth);
  EXPECT_EQ(m.known, 3u);
  EXPECT_EQ(m.nonFinite, 1u);
  EXPECT_NE(metricsText(m).find("(1 more not finite: left out)"), std::string::npos) << metricsText(m);
  EXPECT_TRUE(std::isfinite(m.aae));
  EXPECT_TRUE(std::isfinite(m.angularError));
  const CTensor<float> errors = endPointErrors(flow, truth);
  EXPECT_NEAR(errors(1, 0, 0), 2.0f, 1e-6f);
  EXPECT_TRUE(std::isnan(errors(1, 1, 0)));

  // The perfect flow scores zero everywhere.
  m = evaluateFlow(truth, truth);
  EXPECT_EQ(m.epe, 0.0);
  EXPECT_EQ(m.over1, 0.0);
  EXPECT_NEAR(m.aae, 0.0, 1e-6);
}

TEST(FlowMetrics, EmptyBandsAndAllUnknownGiveNullNotGarbageAndSizesMustMatch) {
  const CTensor<float> truth = constantFlow(3, 2, 1e9f, 0.0f);
  const FlowMetrics m = evaluateFlow(constantFlow(3, 2, 1.0f, 1.0f), truth);
  EXPECT_EQ(m.known, 0u);
  EXPECT_TRUE(std::isnan(m.epe));
  const std::string json = metricsJson(m);
  EXPECT_NE(json.find("\"epe\": null"), std::string::npos) << json;
  EXPECT_NE(json.find("\"epe_s40plus\": null"), std::string::npos) << json;
  EXPECT_EQ(json.find("nan"), std::string::npos) << json;
  EXPECT_NE(metricsText(m).find("n/a"), std::string::npos);

  testing::internal::CaptureStderr();
  EXPECT_THROW(evaluateFlow(constantFlow(3, 2, 0, 0), constantFlow(2, 3, 0, 0)), ETensorIncompatibleSize);
  testing::internal::GetCapturedStderr();
}

TEST(FlowMetrics, MissingFlowVectorsCountBeyondEveryThresholdNotAsAccurate) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  // Truth (1, 1) everywhere; a flow with no finite vector at all.
  const CTensor<float> truth = constantFlow(4, 2, 1.0f, 1.0f);
  FlowMetrics m = evaluateFlow(constantFlow(4, 2, nan, 0.0f), truth);
  EXPECT_EQ(m.known, 8u);
  EXPECT_EQ(m.missing, 8u);
  EXPECT_EQ(m.measured, 0u);
  EXPECT_EQ(m.over1, 1.0);
  EXPECT_EQ(m.over3, 1.0);
  EXPECT_TRUE(std::isnan(m.epe));
  EXPECT_TRUE(std::isnan(m.aae));
  const std::string text = metricsText(m);
  EXPECT_NE(text.find("over 0 of 8 vectors (8 missing)"), std::string::npos) << text;
  EXPECT_NE(text.find("EPE > 1 px      100.00 %"), std::string::npos) << text;
  EXPECT_NE(metricsJson(m).find("\"missing_vectors\": 8, \"measured_vectors\": 0"), std::string::npos);

  // Half the vectors missing, the others 1.41 px off: all beyond 1 px; the
  // EPE is taken over the four finite ones and says so.
  CTensor<float> flow = constantFlow(4, 2, 0.0f, 0.0f);
  for (int x = 0; x < 4; ++x) flow(x, 0, 1) = std::numeric_limits<float>::infinity();
  m = evaluateFlow(flow, truth);
  EXPECT_EQ(m.over1, 1.0);
  EXPECT_EQ(m.over3, 0.5);
  EXPECT_NEAR(m.epe, std::sqrt(2.0), 1e-6);
  EXPECT_EQ(m.measured, 4u);
  EXPECT_TRUE(std::isfinite(m.angularError));
  EXPECT_NE(metricsText(m).find("1.4142 px over 4 of 8 vectors (4 missing)"), std::string::npos) << metricsText(m);
  // The error map shows them beyond the scale, not as unknown truth.
  EXPECT_TRUE(std::isinf(endPointErrors(flow, truth)(1, 0, 0)));
}

// The legend adds a square panel on the right whose centre is black (no
// motion) and whose corners are white background. (The colours of the field
// itself are checked through vemo.flow_to_rgb.)
TEST(FlowPicture, LegendAddsASquarePanelOnTheRight) {
  const CTensor<float> tall = constantFlow(10, 40, 1.0f, 0.0f);
  const CTensor<float> picture = flowPicture(tall, 1.0f, true);
  EXPECT_EQ(picture.xSize, 50);
  EXPECT_EQ(picture.ySize, 40);
  EXPECT_EQ(picture(10 + 20, 20, 1), 0.0f);
  EXPECT_EQ(picture(10, 0, 0), 255.0f);
  EXPECT_EQ(picture(49, 39, 2), 255.0f);
  // The panel's right edge shows motion to the right: red.
  EXPECT_GT(picture(48, 20, 0), 200.0f);
  EXPECT_LT(picture(48, 20, 1), 50.0f);
}
