#include "variational/host_entry_points.h"

#include <sys/time.h>

#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "backends/cpu/convolve.h"
#include "common/timer.h"
#include "backends/backend_factory.h"
#include "backends/extra_stages.h"
#include "method/filter_masks.h"
#include "variational/filters.h"
#include "variational/host_flow.h"
#include "variational/nonlinear_iteration.h"
#include "variational/pcg.h"
#include "variational/run_memory.h"
#include "variational/scratch.h"
#include "pixel/system_matrix.h"

namespace vemo {

namespace {

[[noreturn]] void refuse(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  throw std::invalid_argument(message);
}

void checkSize(const char* who, int height, int width) {
  if (height < 1 || width < 1)
    refuse(std::string(who) + ": invalid size " + std::to_string(width) + "x" + std::to_string(height));
}

// The stages index the planes with 32-bit offsets (run_memory.h).
void checkPlaneOffsets(const char* who, int height, int width, int pitch) {
  if (!planeOffsetsFit(height, pitch))
    refuse(std::string(who) + ": a " + std::to_string(width) + "x" + std::to_string(height) +
           " image is too large for 32-bit plane offsets");
}

void checkArrays(const char* who, std::initializer_list<const void*> arrays) {
  for (const void* a : arrays)
    if (a == nullptr) refuse(std::string(who) + ": null array");
}

}  // namespace

void NonLinearIteration(const float* frame1, const float* warped, const float* conf, const float* geoU,
                        const float* geoV, const float* geoConf, int hypos, float* u, float* v, int height, int width,
                        int nChan, float alpha, float beta, float gamma, int fixedPointIterations,
                        int solverIterations) {
  checkSize("NonLinearIteration", height, width);
  if (nChan < 1) refuse("NonLinearIteration: invalid channel count " + std::to_string(nChan));
  checkArrays("NonLinearIteration", {frame1, warped, conf, geoU, geoV, geoConf, u, v});
  const std::unique_ptr<Backend> backend = makeBackend();
  const int pitch = backend->pitchFor(width);
  checkPlaneOffsets("NonLinearIteration", height, width, pitch);
  const Buffer f1 = uploadRows(*backend, frame1, width, nChan * height, pitch);
  const Buffer f2 = uploadRows(*backend, warped, width, nChan * height, pitch);
  const Buffer c = uploadRows(*backend, conf, width, height, pitch);
  const Buffer gu = uploadRows(*backend, geoU, width, height, pitch);
  const Buffer gv = uploadRows(*backend, geoV, width, height, pitch);
  const Buffer gc = uploadRows(*backend, geoConf, width, height, pitch);
  const Buffer du = uploadRows(*backend, u, width, height, pitch);
  const Buffer dv = uploadRows(*backend, v, width, height, pitch);
  SolverScratch scratch(*backend, static_cast<std::size_t>(pitch) * height);
  gNonLinearIteration(*backend, f1.data(), f2.data(), c.data(), gu.data(), gv.data(), gc.data(), hypos, du.data(),
                      dv.data(), height, width, pitch, nChan, alpha, beta, gamma, fixedPointIterations,
                      solverIterations, scratch.cg(), scratch.fp());
  backend->settleStretches();  // the level's stage times into their totals
  backend->download(u, du.data(), pitch, width, height);
  backend->download(v, dv.data(), pitch, width, height);
  backend->synchronize();
}

int PCG(const float* matrix, const float* b, float* du, float* dv, int height, int width, int iterations) {
  checkSize("PCG", height, width);
  checkArrays("PCG", {matrix, b, du, dv});
  timeval start, finish;
  stamp(start);
  const std::unique_ptr<Backend> backend = makeBackend();
  const int pitch = backend->pitchFor(width);
  checkPlaneOffsets("PCG", height, width, pitch);
  const std::size_t plane = static_cast<std::size_t>(pitch) * height;
  const Buffer A = uploadRows(*backend, matrix, width, kMatrixPlanes * height, pitch);
  const Buffer rhs = uploadRows(*backend, b, width, 2 * height, pitch);
  Buffer x = backend->allocate(2 * plane);
  backend->clear(x.data(), x.floats());
  backend->upload(x.data(), pitch, du, width, height);
  backend->upload(x.data() + plane, pitch, dv, width, height);
  SolverScratch scratch(*backend, plane);
  gPCG(*backend, A.data(), rhs.data(), x.data(), x.data() + plane, height, width, pitch, iterations, scratch.cg());
  const int updates = backend->cgIterations();
  backend->download(du, x.data(), pitch, width, height);
  backend->download(dv, x.data() + plane, pitch, width, height);
  backend->synchronize();
  double ms = 0.0;
  closeStretch(start, finish, ms);
  std::printf("Time= %f ms\n", ms);
  return updates;
}

void variationalFlowVemo(const float* frame1, const float* frame2, float* u, float* v, const float* geoU,
                         const float* geoV, const float* geoConf, int hypos, int height, int width, int nChan,
                         float sigma, float alpha, float beta, float gamma, float eta, int fixedPointIterations,
                         int solverIterations) {
  checkArrays("variationalFlowVemo", {frame1, frame2, u, v, geoU, geoV, geoConf});
  const std::unique_ptr<Backend> backend = makeBackend();
  variationalFlowVemo(*backend, frame1, frame2, u, v, geoU, geoV, geoConf, hypos, height, width, nChan, sigma, alpha,
                      beta, gamma, eta, fixedPointIterations, solverIterations);
}

}  // namespace vemo

namespace {

void checkSameSize(const char* who, int out_height, int out_width, int in_height, int in_width, const float* out,
                   const float* in) {
  if (out_height != in_height || out_width != in_width)
    vemo::refuse(std::string(who) + ": output " + std::to_string(out_width) + "x" + std::to_string(out_height) +
                 " and input " + std::to_string(in_width) + "x" + std::to_string(in_height) + " differ");
  vemo::checkSize(who, in_height, in_width);
  vemo::checkArrays(who, {out, in});
}

}  // namespace

extern "C" void Convolve2d(float* out, int out_height, int out_width, float* in, int in_height, int in_width,
                           float* filter, int filt_height, int filt_width) {
  checkSameSize("Convolve2d", out_height, out_width, in_height, in_width, out, in);
  if (filter == nullptr || filt_height < 1 || filt_width < 1 ||
      static_cast<long long>(filt_height) * filt_width >= vemo::cpu::kMaxMaskLength)
    vemo::refuse("Convolve2d: a filter of " + std::to_string(filt_width) + "x" + std::to_string(filt_height) +
                 " taps does not fit the mask store of " + std::to_string(vemo::cpu::kMaxMaskLength) + " floats");
  const std::unique_ptr<vemo::Backend> backend = vemo::makeBackend();
  const std::unique_ptr<vemo::ExtraStages> stages = vemo::makeExtraStages(*backend);
  // Dense planes in backend memory: the row stride is the width.
  const vemo::Buffer src = vemo::uploadRows(*backend, in, in_width, in_height, in_width);
  vemo::Buffer dst = backend->allocate(static_cast<std::size_t>(in_width) * in_height);
  stages->convolve2d(dst.data(), src.data(), in_height, in_width, filter, filt_height, filt_width);
  backend->download(out, dst.data(), in_width, in_width, in_height);
  backend->synchronize();
}

extern "C" void GaussianFilter(float* out, int out_height, int out_width, float* in, int in_height, int in_width,
                               float sigma) {
  checkSameSize("GaussianFilter", out_height, out_width, in_height, in_width, out, in);
  int length = 0;
  std::vector<float> mask = vemo::GaussianFilterCreate(sigma, length);
  Convolve2d(out, out_height, out_width, in, in_height, in_width, mask.data(), length, 1);
}

extern "C" void GaussianDerivativeFilter(float* out, int out_height, int out_width, float* in, int in_height,
                                         int in_width, float sigma, char dir) {
  checkSameSize("GaussianDerivativeFilter", out_height, out_width, in_height, in_width, out, in);
  int length = 0;
  const std::vector<float> mask = vemo::GaussianDerivativeFilterCreate(sigma, length);
  if (length >= vemo::cpu::kMaxMaskLength)
    vemo::refuse("GaussianDerivativeFilter: sigma " + std::to_string(sigma) + " gives a mask of " +
                 std::to_string(length) + " taps, more than the mask store holds");
  const std::unique_ptr<vemo::Backend> backend = vemo::makeBackend();
  vemo::Buffer img = vemo::uploadRows(*backend, in, in_width, in_height, in_width);
  vemo::gGaussianDerivativeFilter(*backend, img.data(), img.data(), in_height, in_width, sigma, dir);
  backend->download(out, img.data(), in_width, in_width, in_height);
  backend->synchronize();
}
