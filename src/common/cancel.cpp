#include "common/cancel.h"

namespace vemo {

CancelScope::CancelScope(const std::atomic<bool>* flag) : saved_(detail::tlCancelFlag) { detail::tlCancelFlag = flag; }

CancelScope::~CancelScope() { detail::tlCancelFlag = saved_; }

}  // namespace vemo
