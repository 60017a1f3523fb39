#include "vemo/version.hpp"

namespace vemo {

const char* version() { return VEMO_VERSION_STRING; }

}  // namespace vemo
