// Running the programs as processes in a scratch directory, for the tests
// that check exit status, output bytes and the files a run leaves behind.
#pragma once

#include <string>
#include <vector>

namespace vemotest {

struct Result {
  int status = -1;  // exit status, or -1 when the process did not exit normally
  std::string out, err;
};

std::string slurp(const std::string& path);
// Single-quoted for /bin/sh.
std::string quote(const std::string& s);
bool exists(const std::string& path);

// A fresh directory under the test temporary directory, removed with its
// contents when the object dies.
class ScratchDir {
 public:
  explicit ScratchDir(const std::string& prefix);
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::string& dir() const { return dir_; }
  std::string path(const std::string& name) const { return dir_ + "/" + name; }
  // Runs `program args...` from this directory, capturing both streams.
  Result run(const std::string& program, const std::vector<std::string>& args) const;
  // The same, sending `signal` to the process once the file `waitFor` (in
  // this directory) exists.
  Result runUntil(const std::string& program, const std::vector<std::string>& args, const std::string& waitFor,
                  int signal) const;

 private:
  // The result of a run that wrote stdout.txt and stderr.txt here and ended
  // with wait status `raw`; the two files are removed.
  Result collect(int raw) const;

  std::string dir_;
};

}  // namespace vemotest
