// The exceptions of the vemo library: one type per cause a caller handles
// differently, all derived from vemo::Error (a std::runtime_error) and all
// carrying a message that names what went wrong and, where it helps, what to
// do. Nothing is printed: the message is in what().
#pragma once

#include <stdexcept>
#include <string>

namespace vemo {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An argument the call cannot work with: a null pointer, a size, stride or
// channel count out of range, frames of different sizes, a parameter out of
// its range, an unknown preset or device name. Thrown before any work.
class InvalidInput : public Error {
 public:
  using Error::Error;
};

// The pair does not fit in the memory of the Engine's device (host memory
// for the CPU). Thrown before any work when the estimate says so; the
// Engine stays usable for smaller frames.
class OutOfMemory : public Error {
 public:
  using Error::Error;
};

// The GPU failed (a CUDA runtime error or a kernel fault), or the device
// asked for cannot be used. After a failure during a computation the Engine
// is unusable (Engine::usable() is false; every later call throws this
// again): a device fault leaves the CUDA context broken, so make a new
// Engine only after checking that the device works, or use "cpu".
class DeviceError : public Error {
 public:
  using Error::Error;
};

// The computation was stopped by its caller's cancel flag (vemo/cancel.hpp)
// before it finished. Nothing of it is returned; the Engine stays usable.
class Cancelled : public Error {
 public:
  Cancelled() : Error("the computation was cancelled") {}
};

// A file that cannot be opened, read, decoded or written.
class IoError : public Error {
 public:
  using Error::Error;
};

}  // namespace vemo
