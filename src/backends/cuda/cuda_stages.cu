// Element-wise stages, resampling, warping and motion tensors of the CUDA
// backend (the filters are in cuda_convolve.cu). Each kernel thread computes
// one pixel with the per-pixel function that the CPU backend calls for it.
#include <cuda_runtime.h>

#include <cstddef>
#include <string>

#include "backends/cuda/cuda_arguments.h"
#include "backends/cuda/cuda_backend.h"
#include "backends/cuda/cuda_check.h"
#include "backends/cuda/cuda_launch.h"
#include "pixel/elementwise.h"
#include "pixel/motion_tensor.h"
#include "pixel/resample.h"
#include "pixel/warp.h"

namespace vemo {

namespace {

using cuda::checkPlane;
using cuda::forEachPixel;
using cuda::refuseArguments;

struct ScaleOp {
  float* arr;
  int pitch;
  float s;
  __device__ void operator()(int x, int y) const { scaleAt(arr, pitch, s, x, y); }
};

struct SetValueOp {
  float* a;
  int pitch;
  float val;
  __device__ void operator()(int x, int y) const { setValueAt(a, pitch, val, x, y); }
};

struct AddOp {
  float* acc;
  const float* b;
  int pitch;
  __device__ void operator()(int x, int y) const { addAt(acc, b, pitch, x, y); }
};

struct DiffOp {
  float* c;
  const float* a;
  const float* b;
  int pitch;
  __device__ void operator()(int x, int y) const { diffAt(c, a, b, pitch, x, y); }
};

struct DownsampleOp {
  const float* arr;
  int height, width, pitch;
  float* out;
  int newheight, newwidth, newpitch;
  const float* conf;
  __device__ void operator()(int x, int y) const {
    out[static_cast<std::size_t>(y) * newpitch + x] =
        conf != nullptr ? downsampleWeightedAt(arr, height, width, pitch, newheight, newwidth, conf, x, y)
                        : downsampleAt(arr, height, width, pitch, newheight, newwidth, x, y);
  }
};

struct InterpolateOp {
  float* out;
  int opitch;
  const float* src;
  int height, width, pitch;
  float scaleFactor;
  __device__ void operator()(int x, int y) const {
    out[static_cast<std::size_t>(y) * opitch + x] = interpolateAt(src, height, width, pitch, scaleFactor, x, y);
  }
};

struct WarpOp {
  float* out;
  const float *u, *v, *src, *first;
  int nChan;
  float* confidence;
  int height, width, pitch;
  __device__ void operator()(int x, int y) const {
    warpMotionAt(out, src, first, confidence, height, width, pitch, u, v, nChan, x, y);
  }
};

struct BrightnessTensorOp {
  float* ST;
  const float *Ix, *Iy, *Iz, *conf;
  int height, width, pitch;
  __device__ void operator()(int x, int y) const { makeSTAt(ST, Ix, Iy, Iz, conf, height, width, pitch, x, y); }
};

struct GradientTensorOp {
  float* ST2;
  const float *Ixx, *Ixy, *Iyy, *Ixz, *Iyz, *conf;
  int height, width, pitch;
  __device__ void operator()(int x, int y) const {
    makeST2At(ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch, x, y);
  }
};

}  // namespace

void CudaBackend::scale(float* arr, int height, int width, int pitch, float s) {
  forEachPixel("Scale", height, width, ScaleOp{arr, pitch, s}, stream());
}

void CudaBackend::setValue(float* a, int height, int width, int pitch, float val) {
  forEachPixel("setValue", height, width, SetValueOp{a, pitch, val}, stream());
}

void CudaBackend::add(float* acc, const float* b, int height, int width, int pitch) {
  forEachPixel("Add", height, width, AddOp{acc, b, pitch}, stream());
}

void CudaBackend::downsample(const float* arr, int height, int width, int pitch, float* out, int newheight,
                             int newwidth, int newpitch, const float* conf) {
  checkPlane("downsample (source)", height, width, pitch);
  checkPlane("downsample (target)", newheight, newwidth, newpitch);
  forEachPixel("Downsample", newheight, newwidth,
               DownsampleOp{arr, height, width, pitch, out, newheight, newwidth, newpitch, conf}, stream());
}

void CudaBackend::interpolate(float* out, int oheight, int owidth, int opitch, const float* src, int height,
                              int width, int pitch, float scaleFactor) {
  checkPlane("gInterpolate (source)", height, width, pitch);
  checkPlane("gInterpolate (target)", oheight, owidth, opitch);
  forEachPixel("Inteprolation", oheight, owidth, InterpolateOp{out, opitch, src, height, width, pitch, scaleFactor}, stream());
}

void CudaBackend::warpMotion(float* out, const float* u, const float* v, const float* src, const float* first,
                             int nChan, float* confidence, int height, int width, int pitch) {
  checkPlane("gWarpMotion", height, width, pitch);
  if (nChan < 1)
    refuseArguments("gWarpMotion: the image needs at least one channel, got " + std::to_string(nChan));
  forEachPixel("Warping", height, width, WarpOp{out, u, v, src, first, nChan, confidence, height, width, pitch}, stream());
}

void CudaBackend::diff(float* c, const float* a, const float* b, int height, int width, int pitch) {
  checkPlane("Diff", height, width, pitch);
  forEachPixel("Diff", height, width, DiffOp{c, a, b, pitch}, stream());
}

void CudaBackend::brightnessTensor(float* ST, const float* Ix, const float* Iy, const float* Iz, const float* conf,
                                   int height, int width, int pitch) {
  checkPlane("MakeST", height, width, pitch);
  forEachPixel("MakeST", height, width, BrightnessTensorOp{ST, Ix, Iy, Iz, conf, height, width, pitch}, stream());
}

void CudaBackend::gradientTensor(float* ST2, const float* Ixx, const float* Ixy, const float* Iyy, const float* Ixz,
                                 const float* Iyz, const float* conf, int height, int width, int pitch) {
  checkPlane("MakeST2", height, width, pitch);
  forEachPixel("MakeST2", height, width, GradientTensorOp{ST2, Ixx, Ixy, Iyy, Ixz, Iyz, conf, height, width, pitch}, stream());
}

}  // namespace vemo
