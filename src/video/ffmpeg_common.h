// What the FFmpeg-based reader and writer share: the library headers, error
// texts and the logging level.
#pragma once

#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

namespace NVideo {

// FFmpeg's text for an error code ("Invalid data found when processing input").
std::string errorText(int code);

// Silences FFmpeg's own messages (stream summaries, encoder settings,
// warnings): the reader and the writer report failures themselves, with
// the library's reason where it gave one (see CLogCapture).
void quietLibraries();

// While alive, keeps the first error-level message that FFmpeg logs on this
// thread about `context` (a demuxer or decoder context) in sink, e.g.
// "File ended prematurely" from a demuxer that reached the end of a cut-off
// file, which its return codes do not tell apart from a proper end.
class CLogCapture {
 public:
  CLogCapture(const void* context, std::string& sink);
  ~CLogCapture();
  CLogCapture(const CLogCapture&) = delete;
  CLogCapture& operator=(const CLogCapture&) = delete;

 private:
  const void* savedContext_;
  std::string* savedSink_;
};

}  // namespace NVideo
