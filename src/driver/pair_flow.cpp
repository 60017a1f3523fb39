#include "driver/pair_flow.h"

#include "driver/occlusion.h"

CTensor<float> flowBetween(vemo::Backend& backend, const CTensor<float>& from, const CTensor<float>& to,
                           float sigma, const FlowParameters& params) {
  CTensor<float> a = from, b = to, flow;
  runFlowOnBackend(backend, a, b, flow, sigma, params);
  return flow;
}

PairFlow computePairFlow(vemo::Backend& backend, const CTensor<float>& frame1, const CTensor<float>& frame2,
                         float sigma, const FlowParameters& params, bool backward, bool occlusions) {
  PairFlow result;
  result.forward = flowBetween(backend, frame1, frame2, sigma, params);
  if (backward || occlusions) result.backward = flowBetween(backend, frame2, frame1, sigma, params);
  if (occlusions) result.occlusions = occlusionMask(result.forward, result.backward);
  return result;
}
