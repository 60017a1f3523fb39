// The CUDA executor of the device-path stages.
//
// Images live in device memory laid out like the CPU backend's images. Every
// stage is a kernel with one thread per pixel (16 x 16 blocks) calling the
// same per-pixel function of src/pixel/ as the CPU backend, so the per-pixel
// stages give the same values bit for bit (the build forbids contraction on
// both sides; every fused multiply-add is explicit; division and square root
// are correctly rounded on both). Only the dot products differ in summation
// order: see dot(). Bilinear reads (enlargement, warping) use plain loads with
// exact weights (pixel/sample.h), not the texture unit's linear filtering,
// whose weights are rounded to 1/256, for the same reason; the filters'
// clamped reads go through textures with point filtering, which return
// texels unchanged.
//
// The matching and extra stages have their own executors
// (cuda_matching_stages.h, cuda_extra_stages.h), made by
// cuda_backend_factory.h.
//
// All work runs on the default stream in issue order; only while a solve is
// being recorded into a CUDA graph do the solver's operations go to the
// capture stream (the graph is then launched on the default stream). A run
// never waits for the device between upload and download except where its
// stage timers are printed (settleStretches()): the solver's scalars stay on
// the device, and the stage stretches are timed by events. A failing runtime
// call or launch prints the file, line and runtime message and ends the
// process with status 1 (cuda_check.h, teardown included); invalid
// arguments, and an allocation the device cannot satisfy even after the
// cached blocks are given back, are refused with BackendError.
//
// This header needs no CUDA headers, so host code may include it: streams,
// events and graphs appear as the runtime's opaque struct pointers
// (cudaStream_t is CUstream_st*, and so on).
#pragma once

#include <cstddef>
#include <map>
#include <unordered_map>
#include <vector>

#include "backends/backend.h"

struct CUstream_st;
struct CUevent_st;
struct CUgraphExec_st;

namespace vemo {

class CudaBackend : public Backend {
 public:
  // Works on device `device` (cuda:N), which becomes the calling thread's
  // current device. The caller checks cudaDeviceUsable(device) first.
  explicit CudaBackend(int device = 0);
  ~CudaBackend() override;
  CudaBackend(const CudaBackend&) = delete;
  CudaBackend& operator=(const CudaBackend&) = delete;

  const char* name() const override { return "cuda"; }
  void bindToCallingThread() override;
  // Free device memory, plus what this backend holds and a run reuses or
  // gives back: cached blocks, scratch, the filter texture's array, masks.
  std::size_t availableBytes() const override;
  RunOverhead runOverhead(int height, int width, int pitch, int channels) const override;

  Buffer allocate(std::size_t floats) override;
  int pitchFor(int width) const override;
  void upload(float* dst, int dstPitch, const float* src, int width, int rows) override;
  void download(float* dst, const float* src, int srcPitch, int width, int rows) override;
  void copy(float* dst, const float* src, std::size_t floats) override;
  void clear(float* dst, std::size_t floats) override;
  void synchronize() override;

  // Stretches are timed by events on the default stream and added to their
  // totals in settleStretches(), which waits once (cuda_timing.cu).
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
  // One kernel over the whole planes (pixel/diffusivity.h, diffusivityAt);
  // `sum` and `derivative` are not written.
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
  // Deterministic two-pass reduction: one block per row sums the row's
  // products (each rounded to float, as on the CPU) in double with a fixed
  // tree; a single block then adds the row sums, thread t taking a fixed
  // contiguous run of rows in order, and combines the 256 runs with a fixed
  // tree; the double total is rounded once to float. The CPU backend also
  // sums each row in double and rounds once, but adds within a row in four
  // interleaved lanes and adds the rows strictly in order: the two results
  // differ only by the double rounding of the different orders, so they are
  // equal or one float ulp apart unless the terms cancel so far that the
  // double error (about 1e-16 times the sum of magnitudes per addition)
  // reaches half a float ulp of the result.
  float dot(const float* x, const float* y, int rows, int width, int pitch) override;

  void assembleSystem(const FPtmp& fp, const float* u, const float* v, const float* geoU, const float* geoV,
                      const float* geoConf, int height, int width, int pitch, float alpha, float beta,
                      float gamma) override;
  float productDot(const float* A, const float* p, float* q, int height, int width, int pitch) override;
  float nextDirectionProductDot(const float* A, const float* p, const float* z, float beta, float* pNext, float* q,
                                int height, int width, int pitch) override;
  float updatePrecondition(const float* A, float* du, const float* p, float* r, const float* q, float a, float* z,
                           int height, int width, int pitch) override;

  // The solver scalars stay on the device: the reductions of the conjugate
  // gradient write them and the next passes read them, so a solve is issued
  // without any wait; only cgIterations() and solverUpdates() read them back,
  // and runs call neither.
  void cgBegin(const float* r, const float* z, int height, int width, int pitch) override;
  bool cgActive() override;
  void cgFirstProduct(const float* A, const float* p, float* q, int height, int width, int pitch) override;
  void cgNextProduct(const float* A, const float* p, const float* r, const float* z, float* pNext, float* q, int height, int width,
                     int pitch) override;
  void cgUpdate(const float* A, float* du, const float* p, float* r, const float* q, float* z, int height, int width,
                int pitch) override;
  int cgIterations() override;
  long long solverUpdates() override;

  // The first call with a key issues the work directly; the second records it
  // into a CUDA graph (stream capture) and launches that; later calls replay
  // the graph (cuda_graphs.cu, cuda_work_policy.h).
  void issueRepeatable(const RepeatKey& key, FunctionRef work) override;
  // Levels below cuda::kOneBlockLevelPixels run in one thread block
  // (cuda_resident_level.cu).
  bool runWholeLevel(const LevelArgs& level, double& solverTotal) override;

  // Switches for the GPU tests, which compare both ways of running the same
  // work bit for bit: recording repeatable work into graphs, and running
  // small levels in one block. Both are on by default.
  void setRecording(bool enabled) { recording_ = enabled; }
  void setOneBlockLevels(bool enabled) { oneBlockLevels_ = enabled; }

  // The stream operations go to: the default stream (null), or the capture
  // stream while repeatable work is being recorded.
  CUstream_st* stream() const { return issueStream_; }

  void release(float* data) noexcept override;

  // cudaMalloc for memory outside the buffers (the stage executors' integer
  // arrays, this backend's scratch): when the device is out of memory, the
  // cached blocks are given back and the allocation is tried once more
  // before the run is refused (message, BackendError).
  void* deviceAlloc(std::size_t bytes);

  // Where a reduction's total goes: back to the host (dot()), or into the
  // solver scalars as the first r . z, a p . q, or a new r . z.
  enum class DotUse { Host, Start, Step, Finish };

 private:
  // Issues the two kernels of a dot product; the double total lands in
  // rowSums(rows)[rows] and, unless `use` is Host, in the solver scalars.
  void reduce(const float* x, const float* y, int rows, int width, int pitch, DotUse use);
  // The device copy of the current solve's scalars.
  CgScalars* cgScalars();
  // One filter pass (cuda_convolve.cu).
  void convolve(bool alongX, float* out, const float* in, int height, int width, int pitch, const float* mask,
                int length);
  // The device copy of a host mask, uploaded on first use.
  const float* deviceMask(const float* mask, int length);
  // A texture object (point filtering, clamp addressing) over a CUDA array
  // holding a copy of the plane `in`; the array is kept while the size stays.
  unsigned long long textureOf(const float* in, int height, int width, int pitch);
  void releaseTexture() noexcept;

  // Device scratch of at least `floats` floats in slot `slot`, grown and
  // never shrunk, holding whatever its last user left. Slot 1: the copy of
  // an overlapping range moved by copy(), or of a plane filtered without a
  // texture; slots 0 and 2: unused.
  float* scratch(int slot, std::size_t floats);
  // Device buffer for the row sums and the result of dot(), of at least
  // rows + 1 entries. A buffer outgrown is kept until the next settle point
  // (freeing it would wait for the device).
  double* rowSums(int rows);
  // Gives every cached block back to the device.
  void emptyCache();
  // Bytes held outside the buffers: scratch, row sums, texture array, masks.
  std::size_t heldBytes() const;
  void releaseRetired() noexcept;
  // The next event for a stretch, from a pool; recorded on the default
  // stream.
  CUevent_st* recordEvent();
  // A device counter of nanoseconds that one-block levels add their solves'
  // time to, one per total it is destined for.
  unsigned long long* solveClockFor(double* total);
  // Graphs, events and clocks, at destruction.
  void releaseRunState() noexcept;

  // The device (cuda:N) this backend works on.
  int device_ = 0;
  // Bytes behind every live allocation, for the accounting in release().
  std::unordered_map<const float*, std::size_t> sizes_;
  // Released blocks kept for reuse by size (cudaMalloc and cudaFree are slow
  // and cudaFree waits for the device), never more than the peak in use.
  std::multimap<std::size_t, float*> cache_;
  std::size_t cachedBytes_ = 0;
  int pitchAlignment_ = 0;  // bytes, as cudaMallocPitch pads rows
  static constexpr int kScratchSlots = 3;
  float* scratch_[kScratchSlots] = {};
  std::size_t scratchFloats_[kScratchSlots] = {};
  double* rowSums_ = nullptr;
  int rowSumCapacity_ = 0;
  std::vector<double*> retiredRowSums_;
  CgScalars* cgScalars_ = nullptr;
  static constexpr std::size_t kMaxStoredMasks = 64;
  std::map<std::vector<float>, float*> masks_;
  std::size_t maskBytes_ = 0;
  // The filter texture: a cudaArray_t and a cudaTextureObject_t, held
  // opaquely so that host code needs no CUDA headers.
  void* textureArray_ = nullptr;
  unsigned long long texture_ = 0;
  int textureWidth_ = 0, textureHeight_ = 0;
  int maxTextureWidth_ = 0, maxTextureHeight_ = 0;

  // Stage stretches: events of the open ones, and the closed ones waiting to
  // be added to their totals.
  struct OpenStretch {
    const timeval* start;
    CUevent_st* event;
  };
  struct ClosedStretch {
    CUevent_st* start;
    CUevent_st* finish;
    double* total;
  };
  std::vector<CUevent_st*> events_;  // every event made; events_[0, eventsUsed_) are in use
  std::size_t eventsUsed_ = 0;
  std::vector<OpenStretch> openStretches_;
  std::vector<ClosedStretch> closedStretches_;
  // Solve clocks of one-block levels: device counters and their totals.
  static constexpr int kSolveClocks = 16;
  unsigned long long* solveClocks_ = nullptr;
  double* solveClockTotals_[kSolveClocks] = {};
  bool solveClocksUsed_ = false;

  // Recorded work.
  struct RepeatEntry {
    RepeatKey key;
    int calls;
    CUgraphExec_st* graph;
    unsigned long long lastUse;
  };
  std::vector<RepeatEntry> repeats_;
  unsigned long long repeatClock_ = 0;
  CUstream_st* captureStream_ = nullptr;
  CUstream_st* issueStream_ = nullptr;
  bool recording_ = true;
  bool oneBlockLevels_ = true;
};

}  // namespace vemo
