// What a failed device call does. The programs end with status 1 after the
// message: a device fault leaves the GPU context unusable and nothing can be
// retried. A library embedded in a long-lived process (the Python module)
// must not take its host down with it, so it switches failures to throw
// BackendError; the backend that failed is then not to be used again.
#pragma once

namespace flowcore {

// Off by default (end the process).
void setDeviceFailuresThrow(bool on);
bool deviceFailuresThrow();

}  // namespace flowcore
