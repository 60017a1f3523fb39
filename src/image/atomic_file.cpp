#include "image/atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "common/diagnostics.h"
#include "image/exceptions.h"
#include "image/write_error.h"

namespace {

// The mode a file created with open(..., 0666) would get under the current
// umask; mkstemps itself always creates 0600.
mode_t regularFileMode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

CAtomicFile::CAtomicFile(const std::string& target) : target_(target) {
  const size_t slash = target.find_last_of('/');
  const std::string dir = slash == std::string::npos ? std::string() : target.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? target : target.substr(slash + 1);
  const size_t dot = base.find_last_of('.');
  const std::string suffix = (dot == std::string::npos || dot == 0) ? std::string() : base.substr(dot);
  std::string pattern = dir + "." + base + ".XXXXXX" + suffix;
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = mkstemps(name.data(), static_cast<int>(suffix.size()));
  if (fd < 0) {
    vemo::reportf(stderr, "Could not create a file beside %s: %s\n", target.c_str(), std::strerror(errno));
    throw EFileNotFound();
  }
  fchmod(fd, regularFileMode());
  close(fd);
  temp_ = name.data();
}

CAtomicFile::~CAtomicFile() {
  if (!committed_) std::remove(temp_.c_str());
}

void CAtomicFile::commit() {
  if (std::rename(temp_.c_str(), target_.c_str()) != 0) {
    vemo::reportf(stderr, "Could not write %s: %s\n", target_.c_str(), std::strerror(errno));
    std::remove(temp_.c_str());
    committed_ = true;
    throw EFileWriteFailed();
  }
  committed_ = true;
}
