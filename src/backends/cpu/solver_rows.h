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

namespace vemo::cpu {

void gradientXRows(float* diffX, const float* grad, const float* channel, int height, int width, int pitch,
                   int y0, int y1);
void gradientYRows(float* diffY, const float* grad, const float* channel, int height, int width, int pitch,
                   int y0, int y1);
void normalizeRows(float* x, int width, int pitch, int y0, int y1, double epsilon);
// The whole diffusivity of a fixed-point step (diffusivityAt) for rows
// [y0, y1), padding columns included.
void diffusivityRows(const float* u, const float* v, const float* du, const float* dv, float* diffX, float* diffY,
                     int height, int width, int pitch, int y0, int y1, double epsilon);

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

// The passes of the conjugate-gradient solve. The preconditioned residual z
// and the product q = A p are never stored: each pass recomputes what it
// needs of them from r and p, which moves less memory than storing and
// reloading them. `mirrored` selects the couplings read as MirroredCouplings
// (see firstProductDotRows). `scratch` is per-thread room for the row
// buffers: 2 * width + 6 * pitch floats.
//
// r = b - A (du, dv), p = block-Jacobi(r), with the partials of r . p.
void startRows(const float* A, const float* b, const float* du, float* r, float* p, int height, int width, int pitch,
               double* partials, int y0, int y1);
// The partials of p . A p, and whether each row of A is mirrored (see
// MirroredCouplings): both copies of A12 and the couplings shared by
// neighbours equal bit for bit.
void firstProductDotRows(const float* A, const float* p, int height, int width, int pitch, double* partials,
                         unsigned char* mirrored, float* scratch, int y0, int y1);
// p = beta p + block-Jacobi(r) in place, with the partials of p . A p. The
// rows just outside [y0, y1), which another range overwrites concurrently,
// are formed again from the copies of their old values that updateRows left
// in `edges` for the split of `chunk` rows a task. Where
// z is given, block-Jacobi(r) is read from it (as updateRows stored it)
// instead of recomputed.
void nextProductRows(const float* A, float* p, const float* r, const float* z, float beta, bool mirrored, int height,
                     int width, int pitch, double* partials, float* scratch, const float* edges, int chunk, int y0,
                     int y1);
// du += a p, r -= a A p, with the partials of r . block-Jacobi(r); where z is
// given, block-Jacobi(r) is stored there too. Where `edges` is given, the
// first and last rows of p in [y0, y1) are copied there, task y0 / chunk's
// slots (4 * width floats a task), for the next direction pass.
void updateRows(const float* A, float* du, const float* p, float* r, float* z, float a, bool mirrored, int height,
                int width, int pitch, double* partials, float* scratch, float* edges, int chunk, int y0, int y1);

}  // namespace vemo::cpu
