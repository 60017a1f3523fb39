// Row-range loops of the variational solver's stages on host planes laid out
// like device images. Each processes rows [y0, y1) of its image and calls the
// per-pixel functions of src/pixel/; the CPU backend hands row ranges to the
// OpenMP threads. Reductions write one partial sum per row of the stacked
// two-plane vector (rows y and height + y for image row y), summing only the
// `width` data columns so that the result does not depend on the padding: the
// products x[i] * y[i] rounded to single, accumulated in double in four
// interleaved lanes combined as (l0 + l1) + (l2 + l3).
//
// Each loop exists for the baseline instruction set and, on x86-64, for AVX2
// with FMA; the version is chosen once per process. fmaf and the other
// operations round identically in both, so they give the same bits.
#pragma once

namespace flowcore::cpu {

void gradientXRows(float* diffX, const float* grad, const float* channel, int height, int width, int pitch,
                   int y0, int y1);
void gradientYRows(float* diffY, const float* grad, const float* channel, int height, int width, int pitch,
                   int y0, int y1);
void normalizeRows(float* x, int width, int pitch, int y0, int y1);

// The data, gradient and match weights of a pixel, then its matrix row. The
// weights are used where they are computed and not stored.
struct AssemblyPlanes {
  const float* ST;
  const float* ST2;
  const float* du;
  const float* dv;
  const float* u;
  const float* v;
  const float* geoU;
  const float* geoV;
  const float* geoConf;
  const float* diffX;
  const float* diffY;
  float* devMatrix;
  float* b;
};
void assembleRows(const AssemblyPlanes& a, int height, int width, int pitch, float alpha, float beta, float gamma,
                  int y0, int y1);

void residualRows(const float* A, const float* rhs, const float* du, const float* dv, int height, int width,
                  int pitch, float* residual, int y0, int y1);
void productRows(const float* A, const float* du, const float* dv, int height, int width, int pitch, float* res,
                 int y0, int y1);
void blockJacobiRows(const float* A, const float* x, float* y, int height, int width, int pitch, int y0, int y1);
// Over rows of one image (two-plane vectors count 2 * height rows).
void saxpy2Rows(float* acc1, const float* b1, float alpha1, float* acc2, const float* b2, float alpha2, int width,
                int pitch, int y0, int y1);
void scaleAndAddRows(float* acc, const float* b, float scale, int width, int pitch, int y0, int y1);
void dotRows(const float* x, const float* y, int width, int pitch, double* partials, int y0, int y1);

// q = A p with the partials of p . q.
void productDotRows(const float* A, const float* p, float* q, int height, int width, int pitch, double* partials,
                    int y0, int y1);
// pNext = beta p + z over rows of one image (2 * height for a vector).
void nextDirectionRows(const float* p, const float* z, float beta, float* pNext, int width, int pitch, int y0,
                       int y1);
// du += a p, r -= a q, z = block-Jacobi(r), with the partials of r . z.
void updatePreconditionRows(const float* A, float* du, const float* p, float* r, const float* q, float a, float* z,
                            int height, int width, int pitch, double* partials, int y0, int y1);

// productDotRows, and whether each row of A is mirrored (see
// MirroredCouplings): both copies of A12 and the couplings shared by
// neighbours equal bit for bit.
void firstProductDotRows(const float* A, const float* p, float* q, int height, int width, int pitch,
                         double* partials, unsigned char* mirrored, int y0, int y1);
// productDotRows for a mirrored matrix (MirroredCouplings).
void mirroredProductDotRows(const float* A, const float* p, float* q, int height, int width, int pitch,
                            double* partials, int y0, int y1);

}  // namespace flowcore::cpu
