#include "programs/sequence.h"

#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <cctype>

namespace {

double now() {
  timeval t;
  gettimeofday(&t, nullptr);
  return t.tv_sec + t.tv_usec * 1e-6;
}

bool exists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace

bool checkFramePattern(const std::string& pattern, std::string& error) {
  int conversions = 0;
  for (size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') continue;
    if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
      ++i;
      continue;
    }
    size_t j = i + 1;
    if (j < pattern.size() && pattern[j] == '0') ++j;
    const size_t digits = j;
    while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j]))) ++j;
    if (j - digits > 1 || j >= pattern.size() || pattern[j] != 'd') {
      error = "pattern '" + pattern + "' may only hold %d, %Nd or %0Nd (N up to 9) and %%";
      return false;
    }
    ++conversions;
    i = j;
  }
  if (conversions != 1) {
    error = "pattern '" + pattern + "' needs exactly one %d conversion";
    return false;
  }
  return true;
}

std::string frameName(const std::string& pattern, int number) {
  const int needed = std::snprintf(nullptr, 0, pattern.c_str(), number);
  std::string name(static_cast<size_t>(needed) + 1, '\0');
  std::snprintf(&name[0], name.size(), pattern.c_str(), number);
  name.resize(static_cast<size_t>(needed));
  return name;
}

std::vector<int> findFrames(const std::string& pattern, int first) {
  if (first < 0) first = exists(frameName(pattern, 0)) ? 0 : 1;
  std::vector<int> frames;
  for (int n = first; n >= 0 && exists(frameName(pattern, n)); ++n) frames.push_back(n);
  return frames;
}

std::string progressLine(int done, int total, double seconds, bool terminal) {
  char rate[64];
  if (seconds > 0.0 && done > 0) {
    std::snprintf(rate, sizeof rate, "%.2f pairs/s", done / seconds);
  } else {
    std::snprintf(rate, sizeof rate, "-- pairs/s");
  }
  char counts[64];
  if (total < 0) {
    std::snprintf(counts, sizeof counts, "%d pairs, ", done);
    return (terminal ? "\r" : "") + std::string(counts) + rate + (terminal ? "" : "\n");
  }
  std::snprintf(counts, sizeof counts, "%d/%d pairs, ", done, total);
  if (!terminal) return std::string(counts) + rate + "\n";
  constexpr int kWidth = 30;
  const int filled = total > 0 ? std::min(done, total) * kWidth / total : kWidth;
  return "\r[" + std::string(filled, '#') + std::string(kWidth - filled, ' ') + "] " + counts + rate;
}

CProgress::CProgress(std::FILE* stream, int total, bool terminal)
    : stream_(stream), total_(total), terminal_(terminal), start_(now()) {}

void CProgress::update(int done) {
  std::fputs(progressLine(done, total_, now() - start_, terminal_).c_str(), stream_);
  std::fflush(stream_);
}

void CProgress::finish() {
  if (terminal_) std::fputc('\n', stream_);
  std::fflush(stream_);
}
