// A Backend that forwards every operation to a CPU backend and counts what a
// run asks of it: operations, waits for the device and reads of device data
// by the host. The CPU backend never waits, but the calls that would make a
// device backend wait are the same, so the counts show on any machine how
// often a run would block a GPU.
//
// It answers the questions whose answers shape the work as the CUDA backend
// does (cuda_work_policy.h), so that it counts the operations that backend
// would issue: cgActive() is always true (the solver's passes are all
// issued, and do nothing after convergence), small levels run as one unit
// (runWholeLevel, one launch), and repeatable work is issued directly once,
// recorded the second time and replayed after that. The results are the
// CPU backend's, bit for bit, whatever it counts.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "backends/cpu/cpu_backend.h"

namespace vemo::testing {

class CountingBackend : public Backend {
 public:
  // What a call costs the host.
  enum class Kind {
    Operation,  // issued and left to run
    Wait,       // blocks until the device has finished earlier work
    Read,       // hands device data (or a result computed from it) to the host
    Query,      // answered without the device (on the CUDA backend too)
  };

  struct Counts {
    // Issued by the host one by one.
    long operations = 0, waits = 0, reads = 0;
    // Run inside recorded work when it was recorded or replayed, or inside a
    // level run as one unit: no host call of their own.
    long recorded = 0, replayed = 0, inOneUnit = 0;
    // Waits or reads asked for inside such work, where the CUDA backend
    // cannot honour them: must stay 0.
    long misplaced = 0;
    // The CUDA backend's calls that enqueue device work for the operations
    // issued (kernel launches, memsets, copies, event records, graph
    // launches), and the device operations that graphs run for it: the
    // operations weighted by what that backend issues for each (a solver
    // step is a pass and a two-kernel reduction).
    long cudaCalls = 0, graphNodes = 0;
    std::map<std::string, long> byName;
  };

  const Counts& counts() const { return counts_; }
  // Whether to count as the CUDA backend runs small levels (one launch) and
  // repeated solves (graphs); both on by default.
  void setOneBlockLevels(bool enabled) { oneBlockLevels_ = enabled; }
  void setRecording(bool enabled) { recording_ = enabled; }
  void resetCounts() { counts_ = Counts(); }
  CpuBackend& inner() { return inner_; }

  // The CPU backend's name, so that the run finds the CPU's matching stages
  // for this backend's (host) memory.
  const char* name() const override { return inner_.name(); }
  std::size_t availableBytes() const override { return inner_.availableBytes(); }

  Buffer allocate(std::size_t floats) override;
  int pitchFor(int width) const override { return inner_.pitchFor(width); }
  void upload(float* dst, int dstPitch, const float* src, int width, int rows) override;
  void download(float* dst, const float* src, int srcPitch, int width, int rows) override;
  void copy(float* dst, const float* src, std::size_t floats) override;
  void clear(float* dst, std::size_t floats) override;
  void synchronize() override;
  void openStretch(timeval& start) override;
  void closeStretch(const timeval& start, timeval& finish, double& total) override;
  void settleStretches() override;

  void scale(float* arr, int height, int width, int pitch, float scale) override;
  void setValue(float* a, int height, int width, int pitch, float val) override;
  void add(float* acc, const float* b, int height, int width, int pitch) override;
  void convolveX(float* out, const float* in, int height, int width, int pitch, const float* mask,
                 int length) override;
  void convolveY(float* out, const float* in, int height, int width, int pitch, const float* mask,
                 int length) override;
  void downsample(const float* arr, int height, int width, int pitch, float* out, int newheight, int newwidth,
                  int newpitch, const float* conf) override;
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
  void diffusivity(const float* u, const float* v, const float* du, const float* dv, float* diffX, float* diffY,
                   int height, int width, int pitch, float* sum, float* derivative, double epsilon) override;
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
  void residual(const float* A, const float* rhs, const float* du, const float* dv, int height, int width,
                int pitch, float* residual) override;
  void product(const float* A, const float* du, const float* dv, int height, int width, int pitch,
               float* res) override;
  void blockJacobi(const float* A, const float* x, float* y, int height, int width, int pitch) override;
  void saxpy2(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2, int height,
              int width, int pitch) override;
  void scaleAndAdd(float* acc, const float* b, float scale, int height, int width, int pitch) override;
  float dot(const float* x, const float* y, int rows, int width, int pitch) override;
  void assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU, const float* geoV,
                      const float* geoConf, int height, int width, int pitch, float alpha, float beta,
                      float gamma) override;
  float productDot(const float* A, const float* p, float* q, int height, int width, int pitch) override;
  float nextDirectionProductDot(const float* A, const float* p, const float* z, float beta, float* pNext, float* q,
                                int height, int width, int pitch) override;
  float updatePrecondition(const float* A, float* du, const float* p, float* r, const float* q, float a, float* z,
                           int height, int width, int pitch) override;
  void cgBegin(const float* r, const float* z, int height, int width, int pitch) override;
  bool cgActive() override;
  // Where the CPU backend puts the next direction changes no count: asked of
  // it, not answered as the CUDA backend would.
  bool cgDirectionInPlace() const override { return inner_.cgDirectionInPlace(); }
  void cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) override;
  void cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q, int height, int width,
                     int pitch) override;
  void cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height, int width,
                int pitch) override;
  int cgIterations() override;
  long long solverUpdates() override;
  void issueRepeatable(const RepeatKey& key, FunctionRef work) override;
  bool runWholeLevel(const LevelArgs& level, double& solverTotal) override;

  void release(float* data) noexcept override { inner_.release(data); }

 private:
  // Where the operations being counted run.
  enum class Mode { Issued, Recorded, Replayed, OneUnit };
  void note(const char* name, Kind kind);

  CpuBackend inner_;
  Counts counts_;
  Mode mode_ = Mode::Issued;
  bool oneBlockLevels_ = true, recording_ = true;
  std::vector<std::pair<RepeatKey, int>> seen_;  // calls per key of repeatable work
};

}  // namespace vemo::testing
