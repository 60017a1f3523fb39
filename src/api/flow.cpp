// vemo::Flow and .flo files.
#include <cstdio>
#include <cstring>
#include <string>

#include "api/failures.h"
#include "api/frames.h"
#include "driver/optic_flow.h"
#include "vemo/errors.hpp"
#include "vemo/flow.hpp"

namespace vemo {

Flow::Flow(int width, int height) : width_(width), height_(height) {
  if (width < 0 || height < 0) throw InvalidInput("a flow field cannot have a negative size");
  values_.assign(2 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0.0f);
}

namespace {

// Whether the file starts with the .flo tag. A file that cannot be opened
// or read passes: the reader then says why.
bool hasFloTag(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return true;
  char tag[4] = {0, 0, 0, 0};
  const std::size_t got = std::fread(tag, 1, 4, file);
  const bool unreadable = std::ferror(file) != 0;
  std::fclose(file);
  return unreadable || (got == 4 && std::memcmp(tag, "PIEH", 4) == 0);
}

}  // namespace

Flow read_flo(const std::string& path) {
  if (!hasFloTag(path)) throw IoError(path + " is not a .flo flow file (it does not start with \"PIEH\")");
  CTensor<float> tensor;
  api::translated(api::FailureKind::Io, [&] { COpticFlow::readMiddlebury(path.c_str(), tensor); });
  return api::flowFromTensor(tensor);
}

void write_flo(const std::string& path, const Flow& flow) {
  CTensor<float> tensor = api::tensorFromFlow(flow);
  api::translated(api::FailureKind::Io, [&] { COpticFlow::writeMiddleburyAtomically(tensor, path); });
}

}  // namespace vemo
