#include "variational/sor.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <string>

#include "backends/backend_factory.h"
#include "pixel/system_matrix.h"

thread_local double sortimer = 0.0;

namespace vemo {

namespace {

[[noreturn]] void refuse(const std::string& message) {
  std::fprintf(stderr, "%s\n", message.c_str());
  throw std::invalid_argument(message);
}

void checkHostSystem(const char* who, const float* matrix, const float* rhs, const float* du, const float* dv,
                     int height, int width) {
  if (height < 1 || width < 1)
    refuse(std::string(who) + ": invalid size " + std::to_string(width) + "x" + std::to_string(height));
  if (matrix == nullptr || rhs == nullptr || du == nullptr || dv == nullptr)
    refuse(std::string(who) + ": null array");
}

// The host system uploaded into pitched backend planes: the matrix, the
// right-hand side and one two-plane vector (du plane, then dv plane).
struct DeviceSystem {
  DeviceSystem(Backend& backend, const float* matrix, const float* rhs, const float* du, const float* dv, int height,
               int width)
      : pitch(backend.pitchFor(width)), plane(static_cast<std::size_t>(pitch) * height) {
    A = backend.allocate(kMatrixPlanes * plane);
    b = backend.allocate(2 * plane);
    x = backend.allocate(2 * plane);
    // Padding cleared: the solvers' reductions include it.
    backend.clear(A.data(), A.floats());
    backend.clear(b.data(), b.floats());
    backend.clear(x.data(), x.floats());
    backend.upload(A.data(), pitch, matrix, width, kMatrixPlanes * height);
    backend.upload(b.data(), pitch, rhs, width, 2 * height);
    backend.upload(x.data(), pitch, du, width, height);
    backend.upload(x.data() + plane, pitch, dv, width, height);
  }
  int pitch;
  std::size_t plane;
  Buffer A, b, x;
};

// The residual norm of host (du, dv) for one system, which is uploaded once.
class ResidualProbe {
 public:
  ResidualProbe(const float* matrix, const float* rhs, const float* du, const float* dv, int height, int width)
      : backend_(makeBackend()), system_(*backend_, matrix, rhs, du, dv, height, width), height_(height),
        width_(width) {
    r_ = backend_->allocate(2 * system_.plane);
    backend_->clear(r_.data(), r_.floats());
  }
  float operator()(const float* du, const float* dv) {
    DeviceSystem& s = system_;
    backend_->upload(s.x.data(), s.pitch, du, width_, height_);
    backend_->upload(s.x.data() + s.plane, s.pitch, dv, width_, height_);
    backend_->residual(s.A.data(), s.b.data(), s.x.data(), s.x.data() + s.plane, height_, width_, s.pitch,
                       r_.data());
    return std::sqrt(backend_->dot(r_.data(), r_.data(), 2 * height_, width_, s.pitch));
  }

 private:
  std::unique_ptr<Backend> backend_;
  DeviceSystem system_;
  int height_, width_;
  Buffer r_;
};

}  // namespace

void gRedBlack(ExtraStages& stages, const float* devMatrix, const float* rhs, float* du, float* dv, int height,
               int width, int pitch, int iterations, float omega) {
  for (int k = 0; k < iterations; ++k) {
    stages.sorIteration(devMatrix, rhs, du, dv, height, width, 0, omega, pitch);
    stages.sorIteration(devMatrix, rhs, du, dv, height, width, 1, omega, pitch);
  }
}

void gRedBlack(Backend& backend, const float* devMatrix, const float* rhs, float* du, float* dv, int height,
               int width, int pitch, int iterations, float omega) {
  const std::unique_ptr<ExtraStages> stages = makeExtraStages(backend);
  gRedBlack(*stages, devMatrix, rhs, du, dv, height, width, pitch, iterations, omega);
}

void SORIterations(const float* matrix, const float* rhs, float* du, float* dv, const float* initial, int height,
                   int width, float omega, int iterations) {
  checkHostSystem("SORIterations", matrix, rhs, du, dv, height, width);
  if (initial == nullptr) refuse("SORIterations: null initial increment");
  const std::clock_t start = std::clock();
  const std::unique_ptr<Backend> backend = makeBackend();
  const std::unique_ptr<ExtraStages> stages = makeExtraStages(*backend);
  const std::size_t n = static_cast<std::size_t>(width) * height;
  DeviceSystem s(*backend, matrix, rhs, initial, initial + n, height, width);
  gRedBlack(*stages, s.A.data(), s.b.data(), s.x.data(), s.x.data() + s.plane, height, width, s.pitch, iterations,
            omega);
  backend->download(du, s.x.data(), s.pitch, width, height);
  backend->download(dv, s.x.data() + s.plane, s.pitch, width, height);
  backend->synchronize();
  sortimer += static_cast<double>(std::clock() - start);
}

float computeResidual(const float* matrix, const float* rhs, const float* du, const float* dv, int height,
                      int width) {
  checkHostSystem("computeResidual", matrix, rhs, du, dv, height, width);
  return ResidualProbe(matrix, rhs, du, dv, height, width)(du, dv);
}

void GaussSeidel(const float* matrix, const float* rhs, float* du, float* dv, int height, int width, float omega,
                 int iterations) {
  checkHostSystem("GaussSeidel", matrix, rhs, du, dv, height, width);
  const int P = width * height;
  ResidualProbe residual(matrix, rhs, du, dv, height, width);
  std::printf("%d %f\n", 0, residual(du, dv));
  for (int k = 1; k <= iterations; ++k) {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const int i = y * width + x;
        float s1 = 0.0f, s2 = 0.0f;
        if (y > 0) {
          s1 += matrix[i + kNorth * P] * du[i - width];
          s2 += matrix[i + kNorth * P] * dv[i - width];
        }
        if (x > 0) {
          s1 += matrix[i + kWest * P] * du[i - 1];
          s2 += matrix[i + kWest * P] * dv[i - 1];
        }
        if (x < width - 1) {
          s1 += matrix[i + kEast * P] * du[i + 1];
          s2 += matrix[i + kEast * P] * dv[i + 1];
        }
        if (y < height - 1) {
          s1 += matrix[i + kSouth * P] * du[i + width];
          s2 += matrix[i + kSouth * P] * dv[i + width];
        }
        const float a11 = matrix[i + kA11 * P], a12 = matrix[i + kA12Precond * P], a22 = matrix[i + kA22 * P];
        du[i] = (1.0f - omega) * du[i] + omega * (rhs[i] - s1 - a12 * dv[i]) / a11;
        dv[i] = (1.0f - omega) * dv[i] + omega * (rhs[i + P] - s2 - a12 * du[i]) / a22;
      }
    std::printf("%d %f\n", k, residual(du, dv));
  }
}

}  // namespace vemo
