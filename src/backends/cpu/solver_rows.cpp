#include "backends/cpu/solver_rows.h"

namespace vemo::cpu {

// The row loops that each instruction-set copy defines (solver_rows_impl.h).
#define VEMO_SOLVER_ROW_LOOPS \
  void gradientXRows(float* diffX, const float* grad, const float* channel, int height, int width, int pitch, int y0, int y1); \
  void gradientYRows(float* diffY, const float* grad, const float* channel, int height, int width, int pitch, int y0, int y1); \
  void normalizeRows(float* x, int width, int pitch, int y0, int y1, double epsilon); \
  void diffusivityRows(const float* u, const float* v, const float* du, const float* dv, float* diffX, float* diffY, int height, int width, int pitch, int y0, int y1, double epsilon); \
  void assembleRows(const AssemblyPlanes& a, int height, int width, int pitch, float alpha, float beta, float gamma, int y0, int y1); \
  void residualRows(const float* A, const float* rhs, const float* du, const float* dv, int height, int width, int pitch, float* residual, int y0, int y1); \
  void productRows(const float* A, const float* du, const float* dv, int height, int width, int pitch, float* res, int y0, int y1); \
  void blockJacobiRows(const float* A, const float* x, float* y, int height, int width, int pitch, int y0, int y1); \
  void saxpy2Rows(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2, int width, int pitch, int y0, int y1); \
  void scaleAndAddRows(float* acc, const float* b, float scale, int width, int pitch, int y0, int y1); \
  void dotRows(const float* x, const float* y, int width, int pitch, double* partials, int y0, int y1); \
  void productDotRows(const float* A, const float* p, float* q, int height, int width, int pitch, double* partials, int y0, int y1); \
  void startRows(const float* A, const float* b, const float* du, float* r, float* p, int height, int width, int pitch, double* partials, int y0, int y1); \
  void firstProductDotRows(const float* A, const float* p, int height, int width, int pitch, double* partials, unsigned char* mirrored, float* scratch, int y0, int y1); \
  void nextProductRows(const float* A, float* p, const float* r, const float* z, float beta, bool mirrored, int height, int width, int pitch, double* partials, float* scratch, const float* edges, int chunk, int y0, int y1); \
  void updateRows(const float* A, float* du, const float* p, float* r, float* z, float a, bool mirrored, int height, int width, int pitch, double* partials, float* scratch, float* edges, int chunk, int y0, int y1);

namespace base {
VEMO_SOLVER_ROW_LOOPS
}  // namespace base

#if defined(__GNUC__) && defined(__x86_64__)
namespace avx2 {
VEMO_SOLVER_ROW_LOOPS
}  // namespace avx2

namespace {
bool useAvx2() {
  static const bool supported = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  }();
  return supported;
}
}  // namespace
#define VEMO_ROWS_DISPATCH(call) (useAvx2() ? avx2::call : base::call)
#else
#define VEMO_ROWS_DISPATCH(call) (base::call)
#endif

void gradientXRows(float* diffX, const float* grad, const float* channel, int height, int width, int pitch, int y0, int y1) {
  VEMO_ROWS_DISPATCH(gradientXRows(diffX, grad, channel, height, width, pitch, y0, y1));
}

void gradientYRows(float* diffY, const float* grad, const float* channel, int height, int width, int pitch, int y0, int y1) {
  VEMO_ROWS_DISPATCH(gradientYRows(diffY, grad, channel, height, width, pitch, y0, y1));
}

void normalizeRows(float* x, int width, int pitch, int y0, int y1, double epsilon) {
  VEMO_ROWS_DISPATCH(normalizeRows(x, width, pitch, y0, y1, epsilon));
}

void diffusivityRows(const float* u, const float* v, const float* du, const float* dv, float* diffX, float* diffY,
                     int height, int width, int pitch, int y0, int y1, double epsilon) {
  VEMO_ROWS_DISPATCH(diffusivityRows(u, v, du, dv, diffX, diffY, height, width, pitch, y0, y1, epsilon));
}

void assembleRows(const AssemblyPlanes& a, int height, int width, int pitch, float alpha, float beta, float gamma, int y0, int y1) {
  VEMO_ROWS_DISPATCH(assembleRows(a, height, width, pitch, alpha, beta, gamma, y0, y1));
}

void residualRows(const float* A, const float* rhs, const float* du, const float* dv, int height, int width, int pitch, float* residual, int y0, int y1) {
  VEMO_ROWS_DISPATCH(residualRows(A, rhs, du, dv, height, width, pitch, residual, y0, y1));
}

void productRows(const float* A, const float* du, const float* dv, int height, int width, int pitch, float* res, int y0, int y1) {
  VEMO_ROWS_DISPATCH(productRows(A, du, dv, height, width, pitch, res, y0, y1));
}

void blockJacobiRows(const float* A, const float* x, float* y, int height, int width, int pitch, int y0, int y1) {
  VEMO_ROWS_DISPATCH(blockJacobiRows(A, x, y, height, width, pitch, y0, y1));
}

void saxpy2Rows(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2, int width, int pitch, int y0, int y1) {
  VEMO_ROWS_DISPATCH(saxpy2Rows(acc1, b1, alpha1, acc2, b2, alpha2, width, pitch, y0, y1));
}

void scaleAndAddRows(float* acc, const float* b, float scale, int width, int pitch, int y0, int y1) {
  VEMO_ROWS_DISPATCH(scaleAndAddRows(acc, b, scale, width, pitch, y0, y1));
}

void dotRows(const float* x, const float* y, int width, int pitch, double* partials, int y0, int y1) {
  VEMO_ROWS_DISPATCH(dotRows(x, y, width, pitch, partials, y0, y1));
}

void productDotRows(const float* A, const float* p, float* q, int height, int width, int pitch, double* partials, int y0, int y1) {
  VEMO_ROWS_DISPATCH(productDotRows(A, p, q, height, width, pitch, partials, y0, y1));
}

void startRows(const float* A, const float* b, const float* du, float* r, float* p, int height, int width, int pitch, double* partials, int y0, int y1) {
  VEMO_ROWS_DISPATCH(startRows(A, b, du, r, p, height, width, pitch, partials, y0, y1));
}

void firstProductDotRows(const float* A, const float* p, int height, int width, int pitch, double* partials, unsigned char* mirrored, float* scratch, int y0, int y1) {
  VEMO_ROWS_DISPATCH(firstProductDotRows(A, p, height, width, pitch, partials, mirrored, scratch, y0, y1));
}

void nextProductRows(const float* A, float* p, const float* r, const float* z, float beta, bool mirrored, int height, int width, int pitch, double* partials, float* scratch, const float* edges, int chunk, int y0, int y1) {
  VEMO_ROWS_DISPATCH(nextProductRows(A, p, r, z, beta, mirrored, height, width, pitch, partials, scratch, edges, chunk, y0, y1));
}

void updateRows(const float* A, float* du, const float* p, float* r, float* z, float a, bool mirrored, int height, int width, int pitch, double* partials, float* scratch, float* edges, int chunk, int y0, int y1) {
  VEMO_ROWS_DISPATCH(updateRows(A, du, p, r, z, a, mirrored, height, width, pitch, partials, scratch, edges, chunk, y0, y1));
}

}  // namespace vemo::cpu
