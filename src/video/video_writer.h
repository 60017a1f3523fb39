// Video files written frame by frame through FFmpeg's libavcodec and
// libavformat; the container follows the file name's extension (.mp4,
// .mkv, .avi, .mov, ...).
#pragma once

#include <memory>
#include <string>

#include "image/tensor.h"
#include "video/video_rate.h"

class CVideoWriter {
 public:
  // Prepares a video of width x height frames at rate (a rate that is not
  // known() is refused). codec names an FFmpeg encoder ("ffv1", "mpeg4",
  // ...); empty picks H.264 (libx264) where this FFmpeg has it and the
  // container takes it, else MPEG-4 Part 2, both in 4:2:0 so that common
  // players read them. 4:2:0 needs even sizes: an odd width or height gains
  // one column or row copying the edge. An unknown extension, an encoder
  // that is missing or that the container refuses throw EVideoError; an
  // unwritable directory prints its reason and throws EFileNotFound.
  CVideoWriter(const std::string& filename, int width, int height, VideoRate rate, const std::string& codec = "");
  // Without finish() nothing appears under the file name.
  ~CVideoWriter();
  CVideoWriter(const CVideoWriter&) = delete;
  CVideoWriter& operator=(const CVideoWriter&) = delete;

  // Appends a width x height frame of 1 (grey) or 3 (R, G, B) planes with
  // values 0..255 (clamped and rounded). Another size throws EVideoError.
  void write(const CTensor<float>& frame);
  // Flushes the encoder, completes the file and moves it under its name
  // (everything is written to a temporary file beside it until then).
  void finish();

  // Throws EVideoError, as the constructor would, when filename's extension
  // names no video format; for refusing a name before any work is done.
  static void checkName(const std::string& filename);

  // The codec in words, e.g. "H.264 (libx264)" or "MPEG-4 Part 2 (mpeg4)".
  std::string codecDescription() const;
  long long framesWritten() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};
