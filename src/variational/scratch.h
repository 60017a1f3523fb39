// The memory behind the scratch sets (method/scratch_sets.h) of one run.
#pragma once

#include <cstddef>

#include "backends/backend.h"
#include "method/scratch_sets.h"

namespace vemo {

// Owns the memory behind one FPtmp and one CGtmp.
class SolverScratch {
 public:
  // Room for levels of up to `planeFloats` = pitch * height floats per plane.
  SolverScratch(Backend& backend, std::size_t planeFloats);
  const FPtmp& fp() const { return fp_; }
  const CGtmp& cg() const { return cg_; }

 private:
  Buffer fpMemory_;
  Buffer cgMemory_;
  FPtmp fp_;
  CGtmp cg_;
};

}  // namespace vemo
