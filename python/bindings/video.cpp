#include "video.h"

#include <memory>
#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include "api/failures.h"
#include "api/frames.h"
#include "arrays.h"
#include "video/video_error.h"
#include "video/video_reader.h"
#include "video/video_writer.h"

namespace vemopy {

namespace {

// Runs work with the library's messages captured: a video error keeps its
// own message (VideoError); any other failure becomes the public exception
// for its cause, with the captured text, instead of a message on standard
// error.
template <class Work>
auto captured(Work&& work) -> decltype(work()) {
  vemo::MessageCapture capture;
  try {
    return work();
  } catch (const EVideoError&) {
    throw;
  } catch (...) {
    vemo::api::rethrowAsPublic(capture.text(), vemo::api::FailureKind::Io);
  }
}

// One open video file, decoded frame after frame with the GIL released.
class VideoFile {
 public:
  explicit VideoFile(const std::string& path) {
    nb::gil_scoped_release released;
    reader_ = captured([&] { return std::make_unique<CVideoReader>(path); });
  }

  // The next frame as float32 H x W x 3 (0..255), or None at the end.
  nb::object read() {
    CTensor<float> frame;
    bool got;
    {
      nb::gil_scoped_release released;
      got = captured([&] { return reader_->read(frame); });
    }
    if (!got) return nb::none();
    return nb::cast(tensorToArray(frame));
  }

  // Decodes the next frame without converting it; false at the end.
  bool skip() {
    nb::gil_scoped_release released;
    return captured([&] { return reader_->skip(); });
  }

  const CVideoReader& reader() const { return *reader_; }

 private:
  std::unique_ptr<CVideoReader> reader_;
};

// A video written frame by frame; nothing appears under its name before
// finish().
class VideoOutput {
 public:
  VideoOutput(const std::string& path, int width, int height, int rateNum, int rateDen, const std::string& codec) {
    if (width < 1 || height < 1) throw nb::value_error("a video needs frames of at least 1 x 1 pixels");
    if (rateNum < 1 || rateDen < 1) throw nb::value_error("a video needs a frame rate above 0");
    nb::gil_scoped_release released;
    writer_ = captured(
        [&] { return std::make_unique<CVideoWriter>(path, width, height, VideoRate{rateNum, rateDen}, codec); });
  }

  void write(const AnyArray& array) {
    FrameArray pixels;
    viewFrame(array, "frame", pixels);
    const CTensor<float> frame = vemo::api::frameFromView(pixels.view, "frame", 1);
    nb::gil_scoped_release released;
    captured([&] { writer_->write(frame); });
  }

  void finish() {
    nb::gil_scoped_release released;
    captured([&] { writer_->finish(); });
  }

  std::string codec() const { return writer_->codecDescription(); }

 private:
  std::unique_ptr<CVideoWriter> writer_;
};

}  // namespace

void bindVideo(nb::module_& m) {
  // Reader failures carry their whole message (file, frame, reason).
  nb::exception<EVideoError>(m, "VideoError", PyExc_ValueError);
  m.def("video_supported", &videoSupported);
  nb::class_<VideoFile>(m, "VideoFile")
      .def(nb::init<const std::string&>(), nb::arg("path"))
      .def("read", &VideoFile::read)
      .def("skip", &VideoFile::skip)
      .def_prop_ro("width", [](const VideoFile& v) { return v.reader().width(); })
      .def_prop_ro("height", [](const VideoFile& v) { return v.reader().height(); })
      .def_prop_ro("fps", [](const VideoFile& v) { return v.reader().rate().perSecond(); })
      .def_prop_ro("frame_count", [](const VideoFile& v) { return v.reader().frameCount(); })
      .def_prop_ro("codec", [](const VideoFile& v) { return v.reader().codecName(); })
      .def_prop_ro("frames_decoded", [](const VideoFile& v) { return v.reader().framesDecoded(); });
  nb::class_<VideoOutput>(m, "VideoOutput")
      .def(nb::init<const std::string&, int, int, int, int, const std::string&>(), nb::arg("path"),
           nb::arg("width"), nb::arg("height"), nb::arg("rate_num"), nb::arg("rate_den"), nb::arg("codec"))
      .def("write", &VideoOutput::write, nb::arg("frame"))
      .def("finish", &VideoOutput::finish)
      .def_prop_ro("codec", &VideoOutput::codec);
}

}  // namespace vemopy
