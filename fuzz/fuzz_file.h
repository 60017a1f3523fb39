// Helper for fuzz targets whose readers take a file name: writes the input
// to a per-process scratch file and removes it again.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

class FuzzFile {
 public:
  FuzzFile(const uint8_t* data, size_t size, const char* suffix) {
    path_ = "/tmp/vemo-fuzz-" + std::to_string(getpid()) + suffix;
    FILE* f = std::fopen(path_.c_str(), "wb");
    if (f == nullptr) return;
    if (size > 0) std::fwrite(data, 1, size, f);
    std::fclose(f);
  }
  ~FuzzFile() { std::remove(path_.c_str()); }
  const char* path() const { return path_.c_str(); }

 private:
  std::string path_;
};
