// The public API's side of errors: internal failures print a message and
// throw an exception of their own; inside these helpers the message is
// captured instead and thrown as the vemo:: exception for its cause.
#pragma once

#include <string>
#include <utility>

#include "common/diagnostics.h"
#include "vemo/errors.hpp"

namespace vemo::api {

// Which public exception a failure of the library's file code becomes.
enum class FailureKind { Io, Compute };

// Rethrows the exception in flight as a vemo:: exception whose message is
// `captured` (the library's own report) or, without one, the exception's
// text. Internal file errors become IoError (kind Io) or InvalidInput;
// memory refusals OutOfMemory; device failures DeviceError.
[[noreturn]] void rethrowAsPublic(const std::string& captured, FailureKind kind);

// Runs `work` with the library's messages captured and its failures
// rethrown as vemo:: exceptions.
template <class Work>
auto translated(FailureKind kind, Work&& work) -> decltype(work()) {
  MessageCapture capture;
  try {
    return std::forward<Work>(work)();
  } catch (const vemo::Error&) {
    throw;
  } catch (...) {
    rethrowAsPublic(capture.text(), kind);
  }
}

}  // namespace vemo::api
