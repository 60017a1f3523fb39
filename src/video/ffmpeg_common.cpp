#include "video/ffmpeg_common.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "video/video_reader.h"

bool videoSupported() { return true; }

namespace NVideo {

namespace {

thread_local const void* tlContext = nullptr;
thread_local std::string* tlSink = nullptr;

void logCallback(void* context, int level, const char* format, va_list args) {
  if (tlSink != nullptr && context != nullptr && context == tlContext && level <= AV_LOG_ERROR) {
    if (tlSink->empty()) {
      char line[512];
      std::vsnprintf(line, sizeof line, format, args);
      std::string text = line;
      while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
      *tlSink = text;
    }
    return;
  }
  av_log_default_callback(context, level, format, args);
}

}  // namespace

std::string errorText(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {0};
  av_strerror(code, text, sizeof text);
  return text;
}

void quietLibraries() {
  static std::once_flag once;
  std::call_once(once, [] {
    av_log_set_level(AV_LOG_QUIET);
    av_log_set_callback(logCallback);
  });
}

CLogCapture::CLogCapture(const void* context, std::string& sink) : savedContext_(tlContext), savedSink_(tlSink) {
  tlContext = context;
  tlSink = &sink;
}

CLogCapture::~CLogCapture() {
  tlContext = savedContext_;
  tlSink = savedSink_;
}

}  // namespace NVideo
