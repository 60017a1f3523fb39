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

std::string makeFoldersFor(const std::string& target) {
  const size_t slash = target.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return std::string();
  const std::string dir = target.substr(0, slash);
  struct stat info;
  if (stat(dir.c_str(), &info) == 0) {
    return S_ISDIR(info.st_mode) ? std::string() : "folder " + dir + " cannot be created: " + std::strerror(ENOTDIR);
  }
  // Each prefix ending before a '/' in turn, so that a/b/c makes a, a/b, a/b/c.
  for (size_t end = dir.find('/', 1); ; end = dir.find('/', end + 1)) {
    const std::string part = dir.substr(0, end);
    if (mkdir(part.c_str(), 0777) != 0 && errno != EEXIST)
      return "folder " + part + " cannot be created: " + std::strerror(errno);
    if (end == std::string::npos) break;
  }
  if (stat(dir.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
    return "folder " + dir + " cannot be created: " + std::strerror(ENOTDIR);
  return std::string();
}

CAtomicFile::CAtomicFile(const std::string& target) : target_(target) {
  const std::string folders = makeFoldersFor(target);
  if (!folders.empty()) {
    vemo::reportf(stderr, "Could not write %s: %s\n", target.c_str(), folders.c_str());
    throw EFileNotFound();
  }
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
