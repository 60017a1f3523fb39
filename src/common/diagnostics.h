// Where the library's messages go. The programs print them: an error
// message on standard error (or, for the flow-file messages, standard
// output) just before the exception that stops the work. A caller that
// embeds the library (the public API, the Python module) installs a
// MessageCapture on its thread instead, and the messages become the text of
// the exception it throws; nothing is printed then.
#pragma once

#include <cstdio>
#include <string>

namespace vemo {

// printf to `stream`, or into the capture installed on the calling thread.
void reportf(std::FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

// Text put before every line reportf prints on standard error, so that a
// program's messages name it ("vemo-flow: "). Empty by default: the vemo
// program prints the library's messages exactly as they are. Set once at
// start-up, before any thread reports.
void setMessagePrefix(const char* prefix);
const char* messagePrefix();

// While alive, reportf on this thread appends to text() instead of printing.
// Captures nest: the innermost one receives the messages.
class MessageCapture {
 public:
  MessageCapture();
  ~MessageCapture();
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;

  // The messages so far, one per line, without the last line end.
  std::string text() const;

 private:
  std::string text_;
  MessageCapture* outer_;
  friend void reportf(std::FILE*, const char*, ...);
};

}  // namespace vemo
