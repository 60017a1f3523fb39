#include "support/counting_backend.h"

#include "backends/cuda/cuda_work_policy.h"
#include "method/level_steps.h"
#include "variational/nonlinear_iteration.h"

namespace vemo::testing {

namespace {

// Sets a mode for the lifetime of the object.
template <class T>
class Scoped {
 public:
  Scoped(T& place, T value) : place_(place), saved_(place) { place_ = value; }
  ~Scoped() { place_ = saved_; }

 private:
  T& place_;
  T saved_;
};

// Device operations the CUDA backend enqueues for one backend operation
// (backends/cuda/): a conjugate-gradient step is its pass and the two
// kernels of a reduction, a dot product those kernels and the copy of the
// result; every other operation one kernel, memset, copy or event record.
long cudaWeight(const std::string& name, CountingBackend::Kind kind) {
  if (kind == CountingBackend::Kind::Query) return 0;
  if (name == "cgBegin") return 2;
  if (name == "cgFirstProduct" || name == "cgNextProduct" || name == "cgUpdate" || name == "dot" ||
      name == "productDot" || name == "nextDirectionProductDot" || name == "updatePrecondition")
    return 3;
  return 1;
}

}  // namespace

void CountingBackend::note(const char* name, Kind kind) {
  if (mode_ != Mode::Issued) {
    if (kind == Kind::Wait || kind == Kind::Read) ++counts_.misplaced;
    if (kind == Kind::Query) return;
    ++(mode_ == Mode::Recorded ? counts_.recorded : mode_ == Mode::Replayed ? counts_.replayed : counts_.inOneUnit);
    if (mode_ != Mode::OneUnit) counts_.graphNodes += cudaWeight(name, kind);
    return;
  }
  counts_.cudaCalls += cudaWeight(name, kind);
  ++counts_.byName[name];
  switch (kind) {
    case Kind::Operation: ++counts_.operations; break;
    case Kind::Wait: ++counts_.waits; break;
    case Kind::Read: ++counts_.reads; break;
    case Kind::Query: break;
  }
}

using K = CountingBackend::Kind;

Buffer CountingBackend::allocate(std::size_t floats) {
  note("allocate", K::Operation);
  return inner_.allocate(floats);
}

void CountingBackend::upload(float* dst, int dstPitch, const float* src, int width, int rows) {
  note("upload", K::Operation);
  inner_.upload(dst, dstPitch, src, width, rows);
}

void CountingBackend::download(float* dst, const float* src, int srcPitch, int width, int rows) {
  note("download", K::Read);
  inner_.download(dst, src, srcPitch, width, rows);
}

void CountingBackend::copy(float* dst, const float* src, std::size_t floats) {
  note("copy", K::Operation);
  inner_.copy(dst, src, floats);
}

void CountingBackend::clear(float* dst, std::size_t floats) {
  note("clear", K::Operation);
  inner_.clear(dst, floats);
}

void CountingBackend::synchronize() {
  note("synchronize", K::Wait);
  inner_.synchronize();
}

// An event recorded on the stream; inside a level run in one block the
// solves are timed by the device's clock instead.
void CountingBackend::openStretch(timeval& start) {
  if (mode_ != Mode::OneUnit) note("openStretch", K::Operation);
  inner_.openStretch(start);
}

void CountingBackend::closeStretch(const timeval& start, timeval& finish, double& total) {
  if (mode_ != Mode::OneUnit) note("closeStretch", K::Operation);
  inner_.closeStretch(start, finish, total);
}

void CountingBackend::settleStretches() {
  note("settleStretches", K::Wait);
  inner_.settleStretches();
}

void CountingBackend::scale(float* arr, int height, int width, int pitch, float s) {
  note("scale", K::Operation);
  inner_.scale(arr, height, width, pitch, s);
}

void CountingBackend::setValue(float* a, int height, int width, int pitch, float val) {
  note("setValue", K::Operation);
  inner_.setValue(a, height, width, pitch, val);
}

void CountingBackend::add(float* acc, const float* b, int height, int width, int pitch) {
  note("add", K::Operation);
  inner_.add(acc, b, height, width, pitch);
}

void CountingBackend::convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                                int length) {
  note("convolveX", K::Operation);
  inner_.convolveX(out, in, height, width, pitch, mask, length);
}

void CountingBackend::convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                                int length) {
  note("convolveY", K::Operation);
  inner_.convolveY(out, in, height, width, pitch, mask, length);
}

void CountingBackend::downsample(const float* arr, int height, int width, int pitch, float* out, int newheight,
                                 int newwidth, int newpitch, const float* conf) {
  note("downsample", K::Operation);
  inner_.downsample(arr, height, width, pitch, out, newheight, newwidth, newpitch, conf);
}

void CountingBackend::interpolate(float* out, int oheight, int owidth, int opitch, const float* src, int height,
                                  int width, int pitch, float scaleFactor) {
  note("interpolate", K::Operation);
  inner_.interpolate(out, oheight, owidth, opitch, src, height, width, pitch, scaleFactor);
}

void CountingBackend::warpMotion(float* out, const float* u, const float* v, const float* src, const float* first,
                                 int nChan, float* confidence, int height, int width, int pitch) {
  note("warpMotion", K::Operation);
  inner_.warpMotion(out, u, v, src, first, nChan, confidence, height, width, pitch);
}

void CountingBackend::diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
  note("diff", K::Operation);
  inner_.diff(c, a, b, height, width, pitch);
}

void CountingBackend::brightnessTensor(float* ST, const float* Ix, const float* Iy, const float* Iz,
                                       const float* conf, int height, int width, int pitch) {
  note("brightnessTensor", K::Operation);
  inner_.brightnessTensor(ST, Ix, Iy, Iz, conf, height, width, pitch);
}

void CountingBackend::gradientTensor(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy,
                                     const float* Ixz, const float* Iyz, const float* conf, int height, int width,
                                     int pitch) {
  note("gradientTensor", K::Operation);
  inner_.gradientTensor(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch);
}

void CountingBackend::gradientX(float* diffX, const float* grad, const float* channel, int height, int width,
                                int pitch) {
  note("gradientX", K::Operation);
  inner_.gradientX(diffX, grad, channel, height, width, pitch);
}

void CountingBackend::gradientY(float* diffY, const float* grad, const float* channel, int height, int width,
                                int pitch) {
  note("gradientY", K::Operation);
  inner_.gradientY(diffY, grad, channel, height, width, pitch);
}

void CountingBackend::normalize(float* x, int height, int width, int pitch, double epsilon) {
  note("normalize", K::Operation);
  inner_.normalize(x, height, width, pitch, epsilon);
}

void CountingBackend::diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                                  float* diffY, int height, int width, int pitch, float* sum, float* derivative,
                                  double epsilon) {
  note("diffusivity", K::Operation);
  inner_.diffusivity(u, v, du, dv, diffX, diffY, height, width, pitch, sum, derivative, epsilon);
}

void CountingBackend::dataFactor(const float* ST, const float* du, const float* dv, float* dPsiData, int height,
                                 int width, int pitch) {
  note("dataFactor", K::Operation);
  inner_.dataFactor(ST, du, dv, dPsiData, height, width, pitch);
}

void CountingBackend::gradientFactor(const float* ST2, const float* du, const float* dv, float* dPsiGradient,
                                     int height, int width, int pitch, float gamma) {
  note("gradientFactor", K::Operation);
  inner_.gradientFactor(ST2, du, dv, dPsiGradient, height, width, pitch, gamma);
}

void CountingBackend::matchFactor(const float* u, const float* v, const float* du, const float* dv,
                                  const float* geoU, const float* geoV, const float* geoConf, float* dPsiMatch,
                                  float* matchU, float* matchV, int hypos, int height, int width, int pitch,
                                  float beta) {
  note("matchFactor", K::Operation);
  inner_.matchFactor(u, v, du, dv, geoU, geoV, geoConf, dPsiMatch, matchU, matchV, hypos, height, width, pitch,
                     beta);
}

void CountingBackend::makeMatrix(float* devMatrix, float* b, const float* dPsiData, const float* dPsiGradient,
                                 const float* dPsiMatch, const float* ST, const float* ST2, const float* matchU,
                                 const float* matchV, const float* u, const float* v, const float* diffX,
                                 const float* diffY, int height, int width, int pitch, float alpha) {
  note("makeMatrix", K::Operation);
  inner_.makeMatrix(devMatrix, b, dPsiData, dPsiGradient, dPsiMatch, ST, ST2, matchU, matchV, u, v, diffX, diffY,
                    height, width, pitch, alpha);
}

void CountingBackend::residual(const float* A, const float* rhs, const float* du, const float* dv, int height,
                               int width, int pitch, float* res) {
  note("residual", K::Operation);
  inner_.residual(A, rhs, du, dv, height, width, pitch, res);
}

void CountingBackend::product(const float* A, const float* du, const float* dv, int height, int width, int pitch,
                              float* res) {
  note("product", K::Operation);
  inner_.product(A, du, dv, height, width, pitch, res);
}

void CountingBackend::blockJacobi(const float* A, const float* x, float* y, int height, int width, int pitch) {
  note("blockJacobi", K::Operation);
  inner_.blockJacobi(A, x, y, height, width, pitch);
}

void CountingBackend::saxpy2(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2,
                             int height, int width, int pitch) {
  note("saxpy2", K::Operation);
  inner_.saxpy2(acc1, b1, alpha1, acc2, b2, alpha2, height, width, pitch);
}

void CountingBackend::scaleAndAdd(float* acc, const float* b, float s, int height, int width, int pitch) {
  note("scaleAndAdd", K::Operation);
  inner_.scaleAndAdd(acc, b, s, height, width, pitch);
}

float CountingBackend::dot(const float* x, const float* y, int rows, int width, int pitch) {
  note("dot", K::Read);
  return inner_.dot(x, y, rows, width, pitch);
}

void CountingBackend::assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU,
                                     const float* geoV, const float* geoConf, int height, int width, int pitch,
                                     float alpha, float beta, float gamma) {
  note("assembleSystem", K::Operation);
  inner_.assembleSystem(fp, u, v, geoU, geoV, geoConf, height, width, pitch, alpha, beta, gamma);
}

float CountingBackend::productDot(const float* A, const float* p, float* q, int height, int width, int pitch) {
  note("productDot", K::Read);
  return inner_.productDot(A, p, q, height, width, pitch);
}

float CountingBackend::nextDirectionProductDot(const float* A, const float* p, const float* z, float beta,
                                               float* pNext, float* q, int height, int width, int pitch) {
  note("nextDirectionProductDot", K::Read);
  return inner_.nextDirectionProductDot(A, p, z, beta, pNext, q, height, width, pitch);
}

float CountingBackend::updatePrecondition(const float* A, float* du, const float* p, float* r, const float* q,
                                          float a, float* z, int height, int width, int pitch) {
  note("updatePrecondition", K::Read);
  return inner_.updatePrecondition(A, du, p, r, q, a, z, height, width, pitch);
}

void CountingBackend::cgBegin(const float* r, const float* z, int height, int width, int pitch) {
  note("cgBegin", K::Operation);
  inner_.cgBegin(r, z, height, width, pitch);
}

bool CountingBackend::cgActive() {
  note("cgActive", K::Query);
  return true;  // as the CUDA backend, which never reads the scalars back
}

void CountingBackend::cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) {
  note("cgFirstProduct", K::Operation);
  inner_.cgFirstProduct(A, p, q, height, width, pitch);
}

void CountingBackend::cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q,
                                    int height, int width, int pitch) {
  note("cgNextProduct", K::Operation);
  inner_.cgNextProduct(A, p, r, z, pNext, q, height, width, pitch);
}

void CountingBackend::cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z,
                               int height, int width, int pitch) {
  note("cgUpdate", K::Operation);
  inner_.cgUpdate(A, du, p, r, q, z, height, width, pitch);
}

int CountingBackend::cgIterations() {
  note("cgIterations", K::Read);
  return inner_.cgIterations();
}

long long CountingBackend::solverUpdates() {
  note("solverUpdates", K::Read);
  return inner_.solverUpdates();
}

void CountingBackend::issueRepeatable(const RepeatKey& key, FunctionRef work) {
  if (mode_ != Mode::Issued) {  // inside a unit: nothing of its own
    work();
    return;
  }
  int calls = 0;
  for (auto& entry : seen_)
    if (entry.first == key) calls = ++entry.second;
  if (calls == 0) seen_.emplace_back(key, calls = 1);
  if (!recording_ || !key.complete() || calls <= cuda::kDirectIssuesBeforeRecording) {
    work();
    return;
  }
  {
    Scoped<Mode> m(mode_, calls == cuda::kDirectIssuesBeforeRecording + 1 ? Mode::Recorded : Mode::Replayed);
    work();
  }
  note("graphLaunch", K::Operation);
}

bool CountingBackend::runWholeLevel(const LevelArgs& level, double&) {
  if (mode_ != Mode::Issued || !oneBlockLevels_ || !cuda::runsLevelInOneBlock(level.height, level.width))
    return false;
  note("levelInOneBlock", K::Operation);
  Scoped<Mode> m(mode_, Mode::OneUnit);
  levelSteps(*this, level);
  return true;
}

}  // namespace vemo::testing
