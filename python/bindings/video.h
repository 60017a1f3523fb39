// Video files through FFmpeg's libraries: frames of any file they decode, as
// numpy arrays (vemo.read_video, the batch's video sequences), and videos
// written frame by frame (vemo.write_video).
#pragma once

namespace nanobind {
class module_;
}

namespace vemopy {

void bindVideo(nanobind::module_& m);

}  // namespace vemopy
