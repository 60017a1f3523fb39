// The executor behind the device-path stages.
//
// The control flow of the variational solver (pyramid, fixed-point loop,
// conjugate gradient, diffusivity) is written once against this interface;
// a backend only supplies memory and the per-pixel stages. All images are
// pitched float planes in the backend's memory: element (x, y) of a plane at
// y * pitch + x, the pitch counted in floats, a k-plane image storing its
// planes one after another at a stride of pitch * height floats. Size
// arguments come in the order height, width, pitch (then channels), as in the
// stage functions of src/pixel/ that every backend executes.
//
// Pointers handed to the stage operations are addresses inside buffers that
// this backend allocated (host memory for the CPU backend, device memory for
// the CUDA backend). Failures (allocation, an invalid argument) are reported
// by the backend itself: it prints a message to standard error and throws
// BackendError.
#pragma once

#include <sys/time.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "backends/recorded_work.h"
#include "pixel/cg_scalars.h"

namespace vemo {

class Backend;
struct CGtmp;
struct FPtmp;
struct LevelArgs;

// Thrown after a backend has printed what went wrong.
class BackendError : public std::runtime_error {
 public:
  explicit BackendError(const std::string& what) : std::runtime_error(what) {}
};

// A run that does not fit in the backend's memory: refused before it starts,
// or an allocation that failed.
class BackendOutOfMemory : public BackendError {
 public:
  using BackendError::BackendError;
};

// A run of floats in a backend's memory, freed by that backend when the
// handle dies. Move-only; the destructor never throws.
class Buffer {
 public:
  Buffer() = default;
  Buffer(Backend* owner, float* data, std::size_t floats) : owner_(owner), data_(data), floats_(floats) {}
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  Buffer(Buffer&& other) noexcept { swap(other); }
  Buffer& operator=(Buffer&& other) noexcept {
    if (this != &other) {
      reset();
      swap(other);
    }
    return *this;
  }
  ~Buffer() { reset(); }

  float* data() const { return data_; }
  std::size_t floats() const { return floats_; }
  explicit operator bool() const { return data_ != nullptr; }
  void reset() noexcept;

 private:
  void swap(Buffer& other) noexcept {
    std::swap(owner_, other.owner_);
    std::swap(data_, other.data_);
    std::swap(floats_, other.floats_);
  }
  Backend* owner_ = nullptr;
  float* data_ = nullptr;
  std::size_t floats_ = 0;
};

// Two single-precision dot products returned by one fused pass.
struct DotPair {
  float first = 0.0f;
  float second = 0.0f;
};

class Backend {
 public:
  virtual ~Backend() = default;
  virtual const char* name() const = 0;
  // Makes the calling thread ready to issue this backend's work (the CUDA
  // backend makes its device the thread's current one). Callers that move a
  // backend between threads call it before each run.
  virtual void bindToCallingThread() {}

  // ---- memory accounting ---------------------------------------------------
  // Bytes this backend could still allocate for a run (free device memory, or
  // available host memory). Used to refuse a frame before allocating for it.
  virtual std::size_t availableBytes() const = 0;
  // What a run on frames of height x width x channels at `pitch` holds on
  // this backend beyond the buffers the control flow allocates: scratch the
  // matching stages allocate while they run (buffers too, but only while
  // matching), and memory the backend keeps outside its buffers (textures,
  // reduction buffers, device copies of masks). availableBytes() counts what
  // the backend holds of the latter as available, since a run reuses it.
  struct RunOverhead {
    std::size_t matchingScratch = 0;
    std::size_t held = 0;
  };
  virtual RunOverhead runOverhead(int height, int width, int pitch, int channels) const {
    (void)height, (void)width, (void)pitch, (void)channels;
    return {};
  }
  // Bytes held by live buffers, and the most held at any time so far.
  std::size_t bytesInUse() const { return bytesInUse_; }
  std::size_t peakBytes() const { return peakBytes_; }

 protected:
  // Backends call these from allocate() and release().
  void noteAllocated(std::size_t bytes) {
    bytesInUse_ += bytes;
    if (bytesInUse_ > peakBytes_) peakBytes_ = bytesInUse_;
  }
  void noteReleased(std::size_t bytes) noexcept { bytesInUse_ -= bytes; }

 public:

  // ---- memory -------------------------------------------------------------
  // A buffer of `floats` floats. Contents are unspecified; clear() it where
  // zeros matter.
  virtual Buffer allocate(std::size_t floats) = 0;
  // The pitch (in floats) that every image of this width uses. One width
  // gives one pitch, so a run's full-size images share a pitch and so do the
  // images of one pyramid level.
  virtual int pitchFor(int width) const = 0;
  // Dense host rows (width floats each, `rows` rows) into pitched rows.
  virtual void upload(float* dst, int dstPitch, const float* src, int width, int rows) = 0;
  // Pitched rows into dense host rows.
  virtual void download(float* dst, const float* src, int srcPitch, int width, int rows) = 0;
  // Backend to backend, `floats` contiguous floats.
  virtual void copy(float* dst, const float* src, std::size_t floats) = 0;
  virtual void clear(float* dst, std::size_t floats) = 0;
  // Waits until every operation issued so far has finished.
  virtual void synchronize() = 0;

  // ---- stage timers -------------------------------------------------------
  // A stretch of this backend's work, opened at `start` and closed at
  // `finish`, adds its length in milliseconds to `total`. Both stamps are
  // always taken on the host. The default measures host time and adds it at
  // once, which is the work's time on a backend that has finished an
  // operation when it returns (the CPU). A backend that runs operations
  // after issuing them records device events instead and adds the device
  // time in settleStretches(), which waits once for all of them; until then
  // `total` lacks those stretches. Stretches may nest; `start` names the
  // stretch and must stay valid until it is closed.
  virtual void openStretch(timeval& start);
  virtual void closeStretch(const timeval& start, timeval& finish, double& total);
  // Adds every closed stretch not yet added to its total. The one wait of a
  // run for its stage timers: call it where the totals are printed.
  virtual void settleStretches() {}

  // ---- element-wise -------------------------------------------------------
  virtual void scale(float* arr, int height, int width, int pitch, float scale) = 0;
  virtual void setValue(float* a, int height, int width, int pitch, float val) = 0;
  virtual void add(float* acc, const float* b, int height, int width, int pitch) = 0;

  // ---- filtering, resampling, warping, motion tensors --------------------
  // One-dimensional correlation with a host mask of odd length.
  virtual void convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                         int length) = 0;
  virtual void convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                         int length) = 0;
  // Area average of one plane; weighted by `conf` when it is not null.
  virtual void downsample(const float* arr, int height, int width, int pitch, float* out, int newheight,
                          int newwidth, int newpitch, const float* conf) = 0;
  // The plain area average of nChan planes, inPlane floats apart, into planes
  // outPlane floats apart: downsample of each with conf == nullptr.
  virtual void downsampleChannels(const float* in, std::size_t inPlane, float* out, std::size_t outPlane, int nChan,
                                  int height, int width, int pitch, int newheight, int newwidth, int newpitch);
  // The match field (u, v and confidence planes) reduced with weights equal
  // to the confidence: out[k] = downsample(in[k], ..., conf = in[2]).
  virtual void downsampleMatches(const float* const in[3], float* const out[3], int height, int width, int pitch,
                                 int newheight, int newwidth, int newpitch);
  // Bilinear enlargement of `src` (height x width) into `out`.
  virtual void interpolate(float* out, int oheight, int owidth, int opitch, const float* src, int height,
                           int width, int pitch, float scaleFactor) = 0;
  // Backward warp of `src` by (u, v) with the in-image mask `confidence`.
  virtual void warpMotion(float* out, const float* u, const float* v, const float* src, const float* first,
                          int nChan, float* confidence, int height, int width, int pitch) = 0;
  // c = a - b.
  virtual void diff(float* c, const float* a, const float* b, int height, int width, int pitch) = 0;
  // Adds one channel's brightness-constancy tensor (six planes) from its
  // derivatives Ix, Iy and Iz, weighted by the in-image mask.
  virtual void brightnessTensor(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* conf,
                                int height, int width, int pitch) = 0;
  // Adds one channel's gradient-constancy tensor from Ixx, Ixy, Iyy, Ixz, Iyz.
  virtual void gradientTensor(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                              const float* Iyz, const float* conf, int height, int width, int pitch) = 0;

  // Both motion tensors of a level summed over its nChan channels, added
  // into ST and ST2 (see variational/motion_tensors.h: the derivative passes
  // with the five taps `mask`, then each channel's terms, in channel order).
  // `derivatives` is scratch of eight planes.
  virtual void motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
                             float* derivatives, int height, int width, int pitch, int nChan, const float* mask);

  // ---- diffusivity --------------------------------------------------------
  // diffX(x, y) += squared gradient of `channel` on the edge to (x + 1, y);
  // `grad` is the vertical derivative of `channel`.
  virtual void gradientX(float* diffX, const float* grad, const float* channel, int height, int width,
                         int pitch) = 0;
  // diffY(x, y) += squared gradient on the edge to (x, y + 1); `grad` is the
  // horizontal derivative of `channel`.
  virtual void gradientY(float* diffY, const float* grad, const float* channel, int height, int width,
                         int pitch) = 0;
  // x <- 1 / sqrt(x + epsilon) (the method's epsilon: 1e-6).
  virtual void normalize(float* x, int height, int width, int pitch, double epsilon) = 0;
  // The smoothness weights of one fixed-point step: diffX and diffY (whole
  // planes, padding included) from the squared flow gradients of
  // (u + du, v + dv) on the horizontal and vertical edges, normalised with
  // `epsilon` (pixel/diffusivity.h; the method's: kRobustEpsilon). The
  // default composes the operations above, using `sum` and `derivative` as
  // scratch planes; a fused override need not write them.
  virtual void diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX,
                           float* diffY, int height, int width, int pitch, float* sum, float* derivative,
                           double epsilon);

  // ---- robust weights and assembly ---------------------------------------
  virtual void dataFactor(const float* ST, const float* du, const float* dv, float* dPsiData, int height,
                          int width, int pitch) = 0;
  virtual void gradientFactor(const float* ST2, const float* du, const float* dv, float* dPsiGradient,
                              int height, int width, int pitch, float gamma) = 0;
  virtual void matchFactor(const float* u, const float* v, const float* du, const float* dv, const float* geoU,
                           const float* geoV, const float* geoConf, float* dPsiMatch, float* matchU,
                           float* matchV, int hypos, int height, int width, int pitch, float beta) = 0;
  virtual void makeMatrix(float* devMatrix, float* b, const float* dPsiData, const float* dPsiGradient,
                          const float* dPsiMatch, const float* ST, const float* ST2, const float* matchU,
                          const float* matchV, const float* u, const float* v, const float* diffX,
                          const float* diffY, int height, int width, int pitch, float alpha) = 0;

  // ---- conjugate gradient -------------------------------------------------
  // Solver vectors are two planes (du part, dv part) of pitch * height floats.
  // residual = rhs - A (du, dv)
  virtual void residual(const float* A, const float* rhs, const float* du, const float* dv, int height,
                        int width, int pitch, float* residual) = 0;
  // res = A (du, dv)
  virtual void product(const float* A, const float* du, const float* dv, int height, int width, int pitch,
                       float* res) = 0;
  // y = block-Jacobi(x): each pixel's 2 x 2 diagonal block inverted.
  virtual void blockJacobi(const float* A, const float* x, float* y, int height, int width, int pitch) = 0;
  // Over `height` rows (twice the level's height for a two-plane vector):
  // acc1 += alpha1 * b1; acc2 += alpha2 * b2.
  virtual void saxpy2(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2,
                      int height, int width, int pitch) = 0;
  // acc = acc * scale + b over `height` rows.
  virtual void scaleAndAdd(float* acc, const float* b, float scale, int height, int width, int pitch) = 0;
  // Sum of x[i] * y[i] over the first `width` floats of `rows` rows of
  // `pitch` floats, returned in single precision. A backend may include the
  // padding columns, which the solver keeps at zero. It must give the same
  // value for the same data on every call, whatever its degree of
  // parallelism.
  virtual float dot(const float* x, const float* y, int rows, int width, int pitch) = 0;

  // Fused passes of the solver. The defaults compose the operations above;
  // a backend may override them with single passes over memory as long as
  // the results are those of the composition.
  //
  // The four assembly stages in their order, at the increment (du, dv):
  // fills fp.devMatrix and fp.b. A fused override need not store the
  // weight planes (dPsiData, dPsiGradient, dPsiMatch, matchU, matchV).
  virtual void assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU,
                              const float* geoV, const float* geoConf, int height, int width, int pitch,
                              float alpha, float beta, float gamma);
  // q = A p; returns p . q (over both planes).
  virtual float productDot(const float* A, const float* p, float* q, int height, int width, int pitch);
  // pNext = beta p + z (as scaleAndAdd computes it), then q = A pNext;
  // returns pNext . q. p and pNext are distinct buffers.
  virtual float nextDirectionProductDot(const float* A, const float* p, const float* z, float beta, float* pNext,
                                        float* q, int height, int width, int pitch);
  // du += a p, r -= a q, z = block-Jacobi(r); returns r . z.
  virtual float updatePrecondition(const float* A, float* du, const float* p, float* r, const float* q, float a,
                                   float* z, int height, int width, int pitch);

  // The steps of one conjugate-gradient solve (gPCG), on scalars that the
  // backend keeps (CgScalars). Each step does nothing once the solve has
  // converged, so a backend may run them without waiting to learn whether it
  // has; the defaults compose the fused passes above on host scalars.
  //
  // The start of a solve from the increment du (dv one plane later): the
  // vectors of `t` cleared, r = b - A du, z = block-Jacobi(r), p = z, then
  // cgBegin. The default issues those steps (pcgStartSteps).
  virtual void cgPrepare(const float* A, const float* b, const float* du, const CGtmp& t, int height, int width,
                         int pitch);
  // rz = r . z; the solve goes on unless |rz| is below the tolerance.
  virtual void cgBegin(const float* r, const float* z, int height, int width, int pitch);
  // Whether the solve may still be going on. A backend that would have to
  // wait for the answer may say true: the steps then do nothing.
  virtual bool cgActive();
  // q = A p; alpha = rz / (p . q).
  virtual void cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch);
  // pNext = beta p + z; q = A pNext; alpha = rz / (pNext . q). z is
  // block-Jacobi(r) as the last step left it.
  //
  // z and q are the solve's own scratch: a backend may leave them unwritten
  // and recompute z from r and q from p where it needs them, which moves
  // less memory than storing and reloading them.
  //
  // Where cgDirectionInPlace() says so, the caller passes pNext == p and the
  // new direction replaces the old one; otherwise they are distinct buffers.
  virtual void cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext,
                             float* q, int height, int width, int pitch);
  // Whether cgNextProduct forms the new direction in place. The default says
  // no.
  virtual bool cgDirectionInPlace() const { return false; }
  // du += alpha p, r -= alpha q, z = block-Jacobi(r); then beta and rz from
  // the new r . z, and one more iteration counted.
  virtual void cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height,
                        int width, int pitch);
  // Updates applied by the last solve: a read of device data, which waits
  // for the solve. Runs never call it.
  virtual int cgIterations();
  // Updates applied by every solve on this backend so far, counted where the
  // solver scalars live: a read of device data, for statistics at the end of
  // a run.
  virtual long long solverUpdates();

  // ---- whole units of work ------------------------------------------------
  // Calls `work`, which issues operations on this backend only. A backend may
  // instead record the operations issued for a `key` and replay the record
  // for later calls with an equal key, so the key must hold every value the
  // operations depend on (see recorded_work.h). The default calls `work`.
  virtual void issueRepeatable(const RepeatKey& key, FunctionRef work);
  // A backend may run all fixed-point iterations of a pyramid level
  // (variational/level_steps.h) as one unit of its own, with the same
  // results as the steps issued one by one; it returns whether it did. Time
  // spent in the level's solves is added to `solverTotal` (by
  // settleStretches()). The default returns false: the caller issues the
  // steps.
  virtual bool runWholeLevel(const LevelArgs& level, double& solverTotal);

  // Called by Buffer: frees memory that allocate() returned. Never throws.
  virtual void release(float* data) noexcept = 0;

 private:
  std::size_t bytesInUse_ = 0;
  std::size_t peakBytes_ = 0;
  CgScalars cg_;
};

// `rows` dense host rows of `width` floats into a fresh buffer of `rows`
// pitched rows, padding cleared.
Buffer uploadRows(Backend& backend, const float* src, int width, int rows, int pitch);

inline void Buffer::reset() noexcept {
  if (owner_ != nullptr && data_ != nullptr) owner_->release(data_);
  owner_ = nullptr;
  data_ = nullptr;
  floats_ = 0;
}

}  // namespace vemo
