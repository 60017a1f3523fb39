// Entry points of the variational solver and the filters for arrays in host
// memory, for programs that link the library. Each call creates the backend
// of makeBackend(), copies its inputs in, runs the backend-resident function
// and copies the results back. Host arrays are dense: rows of `width`
// floats, planes one after another. Invalid sizes or null arrays print a
// message on standard error and throw std::invalid_argument.
#pragma once

namespace vemo {

// One pyramid level's fixed-point iterations (gNonLinearIteration): frame1
// and warped (frame 2 warped towards frame 1 by (u, v)) of nChan planes,
// conf the warp's in-image mask, geoU, geoV, geoConf the match planes; u and
// v are updated in place by the increment found.
void NonLinearIteration(const float* frame1, const float* warped, const float* conf, const float* geoU,
                        const float* geoV, const float* geoConf, int hypos, float* u, float* v, int height, int width,
                        int nChan, float alpha, float beta, float gamma, int fixedPointIterations,
                        int solverIterations);

// One conjugate-gradient solve (gPCG) of the system `matrix` (twelve
// planes) with right-hand side b (two planes), warm-started from du and dv,
// which receive the result. Prints "Time= t ms" with the time of the call.
// Returns the number of updates applied.
int PCG(const float* matrix, const float* b, float* du, float* dv, int height, int width, int iterations);

// The coarse-to-fine solver (variationalFlowVemo) on the backend of
// makeBackend().
void variationalFlowVemo(const float* frame1, const float* frame2, float* u, float* v, const float* geoU,
                         const float* geoV, const float* geoConf, int hypos, int height, int width, int nChan,
                         float sigma, float alpha, float beta, float gamma, float eta, int fixedPointIterations,
                         int solverIterations);

}  // namespace vemo

// Filters of single host images, with C names for outside callers.
extern "C" {

// 2-D correlation with a row-major filt_height x filt_width mask (tap (i, j)
// weights the sample at row offset i - filt_height/2, column offset
// j - filt_width/2), samples outside the image clamped to the nearest edge
// pixel. filt_width == 1: the mask is a 1-D mask of filt_height taps applied
// along x, then along y. The sizes of out and in must agree and the mask
// must have fewer than 4096 taps.
void Convolve2d(float* out, int out_height, int out_width, float* in, int in_height, int in_width, float* filter,
                int filt_height, int filt_width);

// Gaussian smoothing with the mask of GaussianFilterCreate(sigma) through
// Convolve2d as a separable filter.
void GaussianFilter(float* out, int out_height, int out_width, float* in, int in_height, int in_width,
                    float sigma);

// One pass of the Gaussian-derivative mask of sigma along x (dir 'x') or y
// (any other dir), clamped at the edges.
void GaussianDerivativeFilter(float* out, int out_height, int out_width, float* in, int in_height, int in_width,
                              float sigma, char dir);
}
