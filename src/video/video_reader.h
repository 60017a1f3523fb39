// Frames of a video file, decoded one after the other by FFmpeg's
// libavformat and libavcodec (any container and codec they know) and
// converted by libswscale to the frame type of the image readers.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "image/image_limits.h"
#include "image/tensor.h"
#include "video/video_rate.h"

// Whether this build can read and write video; without FFmpeg the reader
// and the writer throw EVideoError saying so.
bool videoSupported();

class CVideoReader {
 public:
  // Opens the first video stream of a file. A missing file, a file that is
  // not a video, one without a video stream or with frames larger than
  // NImageIO::kMaxImagePixels throw EVideoError naming the file.
  explicit CVideoReader(const std::string& filename);
  // The same for a file held in memory (size bytes at data, which must
  // outlive the reader), named `name` in messages; frames above maxPixels
  // are refused as too large.
  CVideoReader(const void* data, std::size_t size, const std::string& name,
               std::size_t maxPixels = NImageIO::kMaxImagePixels);
  ~CVideoReader();
  CVideoReader(const CVideoReader&) = delete;
  CVideoReader& operator=(const CVideoReader&) = delete;

  // Size of the frames as the container announces it; a decoded frame may
  // differ (streams can change size), so read() reports each frame's own.
  int width() const;
  int height() const;
  // Frames per second as a fraction, {0, 1} when the file does not say.
  VideoRate rate() const;
  // Number of frames the container announces, or -1 when it does not.
  long long frameCount() const;
  // Short name of the video codec ("h264", "ffv1", ...).
  std::string codecName() const;

  // Decodes the next frame into frame: W x H x 3 planes R, G, B with
  // values 0..255 (8-bit video gives whole numbers, deeper video keeps its
  // fractions as the 16-bit PNG reader does). Returns false at the end of
  // the stream. Damaged data, or a file that ends before the frames it
  // announces, throws EVideoError naming the file and the frame. A packet
  // the demuxer marks as damaged ends the stream with that error only when
  // nothing of the stream follows it (a file cut off); where the stream
  // goes on (clips joined end to end, whose counters restart), its frames
  // are decoded and judged by the decoder's own error flags, so a change of
  // frame size shows as such.
  bool read(CTensor<float>& frame);
  // Decodes the next frame without converting it (frames that are passed
  // over). Returns false at the end of the stream; fails as read() does.
  bool skip();
  // Frames decoded so far, by read() and skip() together.
  long long framesDecoded() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
