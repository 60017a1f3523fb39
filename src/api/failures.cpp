#include "api/failures.h"

#include <exception>
#include <new>
#include <stdexcept>

#include "backends/backend.h"
#include "common/device_failures.h"
#include "image/exceptions.h"
#include "image/write_error.h"

namespace vemo::api {

namespace {
std::string messageOr(const std::string& captured, const char* fallback) {
  return captured.empty() ? std::string(fallback) : captured;
}
}  // namespace

void rethrowAsPublic(const std::string& captured, FailureKind kind) {
  try {
    throw;
  } catch (const BackendOutOfMemory& e) {
    throw OutOfMemory(messageOr(captured, e.what()));
  } catch (const BackendError& e) {
    if (deviceFailureSeen()) throw DeviceError(messageOr(captured, e.what()));
    throw Error(messageOr(captured, e.what()));
  } catch (const std::bad_alloc&) {
    throw OutOfMemory(messageOr(captured, "out of host memory"));
  } catch (const std::invalid_argument& e) {
    throw InvalidInput(messageOr(captured, e.what()));
  } catch (const EFileNotFound&) {
    throw IoError(messageOr(captured, "a file could not be opened"));
  } catch (const EFileWriteFailed&) {
    throw IoError(messageOr(captured, "a file could not be written completely"));
  } catch (const EInvalidFileFormat&) {
    if (kind == FailureKind::Io) throw IoError(messageOr(captured, "invalid file format"));
    throw InvalidInput(messageOr(captured, "invalid format"));
  } catch (const ETensorIncompatibleSize&) {
    throw InvalidInput(messageOr(captured, "fields of incompatible sizes"));
  } catch (const std::exception& e) {
    throw Error(messageOr(captured, e.what()));
  } catch (...) {
    throw Error(messageOr(captured, "the library failed without a message"));
  }
}

}  // namespace vemo::api
