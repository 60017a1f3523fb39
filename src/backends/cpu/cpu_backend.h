// The multithreaded CPU executor of the device-path stages.
//
// Images live in 64-byte aligned host memory laid out exactly like device
// images. Loops run over rows with OpenMP; each pixel is computed by the same
// per-pixel function whatever thread runs it, and every reduction is split
// into fixed chunks (one image row each) combined in a fixed order, so the
// results are identical for any thread count.
#pragma once

#include <map>
#include <vector>

#include "backends/backend.h"
#include "backends/cpu/row_parallel.h"

namespace vemo {

class CpuBackend : public Backend {
 public:
  // Rows are padded to a multiple of `pitchAlignment` floats, plus
  // `extraPitch` floats (tests use it to exercise padding that is not a
  // multiple of the vector width).
  explicit CpuBackend(int pitchAlignment = 16, int extraPitch = 0);
  ~CpuBackend() override;
  CpuBackend(const CpuBackend&) = delete;
  CpuBackend& operator=(const CpuBackend&) = delete;

  const char* name() const override { return "cpu"; }
  std::size_t availableBytes() const override;

  Buffer allocate(std::size_t floats) override;
  int pitchFor(int width) const override;
  void upload(float* dst, int dstPitch, const float* src, int width, int rows) override;
  void download(float* dst, const float* src, int srcPitch, int width, int rows) override;
  void copy(float* dst, const float* src, std::size_t floats) override;
  void clear(float* dst, std::size_t floats) override;
  void synchronize() override {}

  void scale(float* arr, int height, int width, int pitch, float scale) override;
  void setValue(float* a, int height, int width, int pitch, float val) override;
  void add(float* acc, const float* b, int height, int width, int pitch) override;

  void convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                 int length) override;
  void convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                 int length) override;
  void downsample(const float* arr, int height, int width, int pitch, float* out, int newheight, int newwidth,
                  int newpitch, const float* conf) override;
  void motionTensors(const float* frame1, const float* warped, float* ST, float* ST2, const float* conf,
                     float* derivatives, int height, int width, int pitch, int nChan, const float* mask) override;
  void downsampleChannels(const float* in, std::size_t inPlane, float* out, std::size_t outPlane, int nChan,
                          int height, int width, int pitch, int newheight, int newwidth, int newpitch) override;
  void downsampleMatches(const float* const in[3], float* const out[3], int height, int width, int pitch,
                         int newheight, int newwidth, int newpitch) override;
  void interpolate(float* out, int oheight, int owidth, int opitch, const float* src, int height, int width,
                   int pitch, float scaleFactor) override;
  void warpMotion(float* out, const float* u, const float* v, const float* src, const float* first, int nChan,
                  float* confidence, int height, int width, int pitch) override;
  void diff(float* c, const float* a, const float* b, int height, int width, int pitch) override;
  void brightnessTensor(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* conf, int height,
                        int width, int pitch) override;
  void gradientTensor(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                      const float* Iyz, const float* conf, int height, int width, int pitch) override;

  void gradientX(float* diffX, const float* grad, const float* channel, int height, int width,
                 int pitch) override;
  void gradientY(float* diffY, const float* grad, const float* channel, int height, int width,
                 int pitch) override;
  void normalize(float* x, int height, int width, int pitch, double epsilon) override;

  void dataFactor(const float* ST, const float* du, const float* dv, float* dPsiData, int height, int width,
                  int pitch) override;
  void gradientFactor(const float* ST2, const float* du, const float* dv, float* dPsiGradient, int height,
                      int width, int pitch, float gamma) override;
  void matchFactor(const float* u, const float* v, const float* du, const float* dv, const float* geoU,
                   const float* geoV, const float* geoConf, float* dPsiMatch, float* matchU, float* matchV,
                   int hypos, int height, int width, int pitch, float beta) override;
  void makeMatrix(float* devMatrix, float* b, const float* dPsiData, const float* dPsiGradient,
                  const float* dPsiMatch, const float* ST, const float* ST2, const float* matchU,
                  const float* matchV, const float* u, const float* v, const float* diffX, const float* diffY,
                  int height, int width, int pitch, float alpha) override;
  void diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX, float* diffY,
                   int height, int width, int pitch, float* sum, float* derivative, double epsilon) override;
  void assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU, const float* geoV,
                      const float* geoConf, int height, int width, int pitch, float alpha, float beta,
                      float gamma) override;

  void residual(const float* A, const float* rhs, const float* du, const float* dv, int height, int width,
                int pitch, float* residual) override;
  void product(const float* A, const float* du, const float* dv, int height, int width, int pitch,
               float* res) override;
  void blockJacobi(const float* A, const float* x, float* y, int height, int width, int pitch) override;
  void saxpy2(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2, int height,
              int width, int pitch) override;
  void scaleAndAdd(float* acc, const float* b, float scale, int height, int width, int pitch) override;
  float dot(const float* x, const float* y, int rows, int width, int pitch) override;
  float productDot(const float* A, const float* p, float* q, int height, int width, int pitch) override;

  // The solve's steps in passes that store neither z nor q: the next
  // direction's pass recomputes z from r, the update's pass recomputes q from
  // p, and nothing is cleared (no pass reads the padding). The first product
  // also checks whether the matrix is mirrored (MirroredCouplings), as the
  // assembly writes it; the later passes then read five of its planes instead
  // of eight, with the same values and so the same bits. The next direction
  // overwrites the current one in place (one direction buffer streams
  // through the caches instead of two), from copies of the rows at the
  // boundaries of the threads' row ranges that each update pass keeps.
  void cgPrepare(const float* A, const float* b, const float* du, const CGtmp& t, int height, int width,
                 int pitch) override;
  void cgBegin(const float* r, const float* z, int height, int width, int pitch) override;
  bool cgActive() override;
  bool cgDirectionInPlace() const override;
  void cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) override;
  void cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q,
                     int height, int width, int pitch) override;
  void cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height, int width,
                int pitch) override;
  int cgIterations() override;
  long long solverUpdates() override;

  void release(float* data) noexcept override;

 private:
  // Per-row partial sums of the reductions, grown on demand, never shrunk.
  double* partials(int rows);
  // Levels up to this many pixels keep z in memory between solver passes.
  static constexpr long kStoredZPixels = 140000;
  static bool cgStoresZ(int height, int width);
  float combinePartials(int rows) const;

  int pitchAlignment_;
  int extraPitch_;
  std::vector<double> partials_;
  // The current solve: its scalars and whether its matrix is mirrored.
  CgScalars cg_;
  bool cgMirrored_ = false;
  std::vector<unsigned char> mirroredRows_;
  // The rows of p at the boundaries of the last update pass's split, and
  // the image it split (-1 before the solve's first update).
  std::vector<float> edgeRows_;
  cpu::RowSplit edgeSplit_{0, 1};
  int edgeHeight_ = -1, edgeWidth_ = -1;
  // Released blocks kept for reuse, keyed by their size in bytes. Large
  // fresh blocks arrive as untouched pages and pay a page fault per 4 KiB on
  // first use; the full-size passes of a run and every later pair of a
  // sequence ask for exactly the sizes released before. At most as many
  // bytes are kept as the run held at its peak.
  std::multimap<std::size_t, void*> cache_;
  std::size_t cachedBytes_ = 0;
  std::size_t skewCounter_ = 0;
};

}  // namespace vemo
