#include "common/diagnostics.h"

#include <cstdarg>
#include <vector>

namespace vemo {

namespace {
thread_local MessageCapture* activeCapture = nullptr;
const char* prefix = "";
bool atLineStart = true;  // on standard error, for the prefix

// Writes text to standard error with the prefix at the start of each line.
void printPrefixed(const char* text) {
  for (const char* p = text; *p != '\0'; ++p) {
    if (atLineStart) std::fputs(prefix, stderr);
    std::fputc(*p, stderr);
    atLineStart = *p == '\n';
  }
}
}  // namespace

void setMessagePrefix(const char* text) { prefix = text; }

const char* messagePrefix() { return prefix; }

MessageCapture::MessageCapture() : outer_(activeCapture) { activeCapture = this; }

MessageCapture::~MessageCapture() { activeCapture = outer_; }

std::string MessageCapture::text() const {
  std::string t = text_;
  while (!t.empty() && (t.back() == '\n' || t.back() == ' ')) t.pop_back();
  return t;
}

void reportf(std::FILE* stream, const char* format, ...) {
  va_list args;
  va_start(args, format);
  if (activeCapture == nullptr && (stream != stderr || *prefix == '\0')) {
    std::vfprintf(stream, format, args);
    va_end(args);
    return;
  }
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (length > 0) {
    std::vector<char> text(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, again);
    if (activeCapture != nullptr) {
      activeCapture->text_.append(text.data(), static_cast<std::size_t>(length));
    } else {
      printPrefixed(text.data());
    }
  }
  va_end(again);
}

}  // namespace vemo
