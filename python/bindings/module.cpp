// The extension module vemo._vemo: the Engine and the flow tools over the
// public C++ API (include/vemo/), with its exceptions turned into Python
// ones. The Python API, its defaults and docstrings are in python/vemo/.
#include <nanobind/nanobind.h>

#include "backends/backend.h"
#include "cancel.h"
#include "engine.h"
#include "flow_tools.h"
#include "video.h"
#include "image/exceptions.h"
#include "image/write_error.h"
#include "vemo/errors.hpp"

namespace nb = nanobind;

namespace {

void translate(const std::exception_ptr& error, void*) {
  try {
    std::rethrow_exception(error);
  } catch (const vemo::Cancelled& e) {
    // Cancelled from Python only on Ctrl-C.
    PyErr_SetString(PyExc_KeyboardInterrupt, e.what());
  } catch (const vemo::InvalidInput& e) {
    PyErr_SetString(PyExc_ValueError, e.what());
  } catch (const vemo::OutOfMemory& e) {
    PyErr_SetString(PyExc_MemoryError, e.what());
  } catch (const vemo::IoError& e) {
    PyErr_SetString(PyExc_OSError, e.what());
  } catch (const vemo::Error& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  } catch (const vemo::BackendOutOfMemory& e) {
    // The video path works on the library's internals (see video.cpp).
    PyErr_SetString(PyExc_MemoryError, e.what());
  } catch (const vemo::BackendError& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  } catch (const EFileNotFound&) {
    PyErr_SetString(PyExc_OSError, "a file could not be opened");
  } catch (const EFileWriteFailed&) {
    PyErr_SetString(PyExc_OSError, "a file could not be written completely");
  }
}

}  // namespace

NB_MODULE(_vemo, m) {
  nb::register_exception_translator(&translate);
  vemopy::bindCancel(m);
  vemopy::bindEngine(m);
  vemopy::bindFlowTools(m);
  vemopy::bindVideo(m);
}
