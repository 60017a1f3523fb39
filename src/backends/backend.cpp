// Default fused passes of the solver, composed of the elementary operations,
// and the host-timed stage stretches.
#include "backends/backend.h"

#include "common/timer.h"
#include "pixel/diffusivity.h"
#include "method/motion_tensor_steps.h"
#include "method/pcg_steps.h"
#include "method/scratch_sets.h"

namespace vemo {

Buffer uploadRows(Backend& backend, const float* src, int width, int rows, int pitch) {
  Buffer b = backend.allocate(static_cast<std::size_t>(pitch) * rows);
  backend.clear(b.data(), b.floats());
  backend.upload(b.data(), pitch, src, width, rows);
  return b;
}

void Backend::openStretch(timeval& start) { stamp(start); }

void Backend::closeStretch(const timeval& start, timeval& finish, double& total) {
  vemo::closeStretch(start, finish, total);
}

void Backend::motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
                            float* derivatives, int height, int width, int pitch, int nChan, const float* mask) {
  motionTensorSteps(*this, frame1, warped, ST, ST2, conf, derivatives, height, width, pitch, nChan, mask);
}

void Backend::downsampleChannels(const float* in, std::size_t inPlane, float* out, std::size_t outPlane, int nChan,
                                 int height, int width, int pitch, int newheight, int newwidth, int newpitch) {
  for (int c = 0; c < nChan; ++c)
    downsample(in + c * inPlane, height, width, pitch, out + c * outPlane, newheight, newwidth, newpitch, nullptr);
}

void Backend::downsampleMatches(const float* const in[3], float* const out[3], int height, int width, int pitch,
                                int newheight, int newwidth, int newpitch) {
  for (int k = 0; k < 3; ++k) downsample(in[k], height, width, pitch, out[k], newheight, newwidth, newpitch, in[2]);
}

void Backend::diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                          float* diffY, int height, int width, int pitch, float* sum, float* derivative,
                          double epsilon) {
  const float central[3] = {centralDifferenceTap(0), centralDifferenceTap(1), centralDifferenceTap(2)};
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  clear(diffX, plane);
  clear(diffY, plane);
  const float* flow[2] = {u, v};
  const float* increment[2] = {du, dv};
  for (int c = 0; c < 2; ++c) {
    copy(sum, flow[c], plane);
    add(sum, increment[c], height, width, pitch);
    convolveY(derivative, sum, height, width, pitch, central, 3);
    gradientX(diffX, derivative, sum, height, width, pitch);
    convolveX(derivative, sum, height, width, pitch, central, 3);
    gradientY(diffY, derivative, sum, height, width, pitch);
  }
  normalize(diffX, height, width, pitch, epsilon);
  normalize(diffY, height, width, pitch, epsilon);
}

float Backend::productDot(const float* A, const float* p, float* q, int height, int width, int pitch) {
  product(A, p, p + static_cast<std::size_t>(pitch) * height, height, width, pitch, q);
  return dot(p, q, 2 * height, width, pitch);
}

float Backend::nextDirectionProductDot(const float* A, const float* p, const float* z, float beta, float* pNext,
                                       float* q, int height, int width, int pitch) {
  copy(pNext, p, 2 * static_cast<std::size_t>(pitch) * height);
  scaleAndAdd(pNext, z, beta, 2 * height, width, pitch);
  return productDot(A, pNext, q, height, width, pitch);
}

float Backend::updatePrecondition(const float* A, float* du, const float* p, float* r, const float* q,
                                         float a, float* z, int height, int width, int pitch) {
  saxpy2(du, p, a, r, q, -a, 2 * height, width, pitch);
  blockJacobi(A, r, z, height, width, pitch);
  return dot(r, z, 2 * height, width, pitch);
}

void Backend::cgPrepare(const float* A, const float* b, const float* du, const CGtmp& t, int height, int width,
                        int pitch) {
  pcgStartSteps(*this, A, b, du, t, height, width, pitch);
}

void Backend::cgBegin(const float* r, const float* z, int height, int width, int pitch) {
  cgStart(cg_, dot(r, z, 2 * height, width, pitch));
}

bool Backend::cgActive() { return cg_.active != 0; }

void Backend::cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) {
  if (cg_.active != 0) cgStep(cg_, productDot(A, p, q, height, width, pitch));
}

void Backend::cgNextProduct(const float* A, const float* p, const float*, const float* z, float* pNext, float* q,
                            int height, int width, int pitch) {
  if (cg_.active != 0) cgStep(cg_, nextDirectionProductDot(A, p, z, cg_.beta, pNext, q, height, width, pitch));
}

void Backend::cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height,
                       int width, int pitch) {
  if (cg_.active != 0) cgFinish(cg_, updatePrecondition(A, du, p, r, q, cg_.alpha, z, height, width, pitch));
}

int Backend::cgIterations() { return cg_.iterations; }

long long Backend::solverUpdates() { return cg_.updates; }

void Backend::issueRepeatable(const RepeatKey&, FunctionRef work) { work(); }

bool Backend::runWholeLevel(const LevelArgs&, double&) { return false; }

void Backend::assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU,
                                    const float* geoV, const float* geoConf, int height, int width, int pitch,
                                    float alpha, float beta, float gamma) {
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  const float* du = fp.du;
  const float* dv = fp.du + plane;
  dataFactor(fp.ST, du, dv, fp.dPsiData, height, width, pitch);
  gradientFactor(fp.ST2, du, dv, fp.dPsiGradient, height, width, pitch, gamma);
  matchFactor(u, v, du, dv, geoU, geoV, geoConf, fp.dPsiMatch, fp.matchU, fp.matchV, 1, height, width, pitch,
              beta);
  makeMatrix(fp.devMatrix, fp.b, fp.dPsiData, fp.dPsiGradient, fp.dPsiMatch, fp.ST, fp.ST2, fp.matchU, fp.matchV,
             u, v, fp.diffX, fp.diffY, height, width, pitch, alpha);
}

}  // namespace vemo
