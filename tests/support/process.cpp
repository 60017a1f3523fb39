#include "support/process.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <gtest/gtest.h>

namespace vemotest {

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += (c == '\'') ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

bool exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

ScratchDir::ScratchDir(const std::string& prefix) {
  static int counter = 0;
  dir_ = testing::TempDir() + prefix + std::to_string(getpid()) + "_" + std::to_string(counter++);
  if (mkdir(dir_.c_str(), 0755) != 0) throw std::runtime_error("cannot create " + dir_);
}

ScratchDir::~ScratchDir() { std::system(("rm -rf " + quote(dir_)).c_str()); }

Result ScratchDir::run(const std::string& program, const std::vector<std::string>& args) const {
  std::string cmd = "cd " + quote(dir_) + " && " + quote(program);
  for (const std::string& a : args) cmd += " " + quote(a);
  cmd += " >" + quote(path("stdout.txt")) + " 2>" + quote(path("stderr.txt"));
  return collect(std::system(cmd.c_str()));
}

Result ScratchDir::collect(int raw) const {
  Result r;
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  r.out = slurp(path("stdout.txt"));
  r.err = slurp(path("stderr.txt"));
  std::remove(path("stdout.txt").c_str());
  std::remove(path("stderr.txt").c_str());
  return r;
}

Result ScratchDir::runUntil(const std::string& program, const std::vector<std::string>& args,
                            const std::string& waitFor, int signal) const {
  const pid_t pid = fork();
  if (pid == 0) {
    if (chdir(dir_.c_str()) != 0 || !std::freopen(path("stdout.txt").c_str(), "w", stdout) ||
        !std::freopen(path("stderr.txt").c_str(), "w", stderr))
      _exit(127);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  int raw = 0;
  for (int waited = 0; waited < 120000 && waitpid(pid, &raw, WNOHANG) == 0; waited += 5) {
    if (exists(path(waitFor))) {
      kill(pid, signal);
      break;
    }
    usleep(5000);
  }
  waitpid(pid, &raw, 0);
  return collect(raw);
}

}  // namespace vemotest
