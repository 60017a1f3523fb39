// The extension module vemo._vemo: the Engine and the flow tools over the
// library, with the library's failures turned into Python exceptions. The
// public API, its defaults and docstrings are in python/vemo/.
#include <nanobind/nanobind.h>

#include <new>

#include "backends/backend.h"
#include "common/stage_lines.h"
#include "engine.h"
#include "flow_tools.h"
#include "video.h"
#include "image/exceptions.h"
#include "image/write_error.h"

namespace nb = nanobind;

namespace {

// Library exceptions after which the library has already printed its
// message on standard error; the Python exception carries the backend's own
// text where there is one.
void translate(const std::exception_ptr& error, void*) {
  try {
    std::rethrow_exception(error);
  } catch (const vemo::BackendOutOfMemory& e) {
    PyErr_SetString(PyExc_MemoryError, e.what());
  } catch (const vemo::BackendError& e) {
    PyErr_SetString(PyExc_RuntimeError, e.what());
  } catch (const EFileNotFound&) {
    PyErr_SetString(PyExc_OSError, "a file could not be opened (the reason is on standard error)");
  } catch (const EFileWriteFailed&) {
    PyErr_SetString(PyExc_OSError, "a file could not be written completely (the reason is on standard error)");
  } catch (const ETensorIncompatibleSize&) {
    PyErr_SetString(PyExc_RuntimeError, "fields of incompatible sizes (details on standard error)");
  } catch (const EInvalidFileFormat&) {
    PyErr_SetString(PyExc_ValueError, "invalid file format (details on standard error)");
  }
}

}  // namespace

NB_MODULE(_vemo, m) {
  // The stage timings and progress lines the programs print do not belong
  // in a library's standard output.
  vemo::setStageLines(false);
  nb::register_exception_translator(&translate);
  vemopy::bindEngine(m);
  vemopy::bindFlowTools(m);
  vemopy::bindVideo(m);
}
