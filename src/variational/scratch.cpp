#include "variational/scratch.h"

#include "pixel/system_matrix.h"

namespace vemo {

namespace {
// Plane counts of the FPtmp fields, in declaration order.
constexpr int kFpPlanes[] = {2, 6, 6, 1, 1, 1, 1, 1, 1, 1, kMatrixPlanes, 2, 1, 1, 8};
constexpr int kCgVectors = 6;
}  // namespace

SolverScratch::SolverScratch(Backend& backend, std::size_t planeFloats) {
  std::size_t total = 0;
  for (int n : kFpPlanes) total += n;
  fpMemory_ = backend.allocate(total * planeFloats);
  // Zero once so that padding columns and unused planes hold no garbage.
  backend.clear(fpMemory_.data(), fpMemory_.floats());
  float* fields[] = {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
  float* next = fpMemory_.data();
  for (int k = 0; k < static_cast<int>(sizeof(kFpPlanes) / sizeof(kFpPlanes[0])); ++k) {
    fields[k] = next;
    next += kFpPlanes[k] * planeFloats;
  }
  fp_ = FPtmp{fields[0], fields[1], fields[2],  fields[3],  fields[4],  fields[5],  fields[6],
              fields[7], fields[8], fields[9], fields[10], fields[11], fields[12], fields[13], fields[14]};

  cgMemory_ = backend.allocate(kCgVectors * 2 * planeFloats);
  backend.clear(cgMemory_.data(), cgMemory_.floats());
  float* v = cgMemory_.data();
  cg_ = CGtmp{v, v + 2 * planeFloats, v + 4 * planeFloats, v + 6 * planeFloats, v + 8 * planeFloats,
              v + 10 * planeFloats};
}

}  // namespace vemo
