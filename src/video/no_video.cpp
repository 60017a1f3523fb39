// Stand-ins for the reader and the writer in a build without FFmpeg: every
// use says that this build has no video support.
#include "video/video_error.h"
#include "video/video_reader.h"
#include "video/video_writer.h"

namespace {

[[noreturn]] void unsupported() {
  throw EVideoError("this build has no video support: FFmpeg's libavformat, libavcodec and libswscale were "
                    "not found when it was configured (scripts/setup.sh installs them)");
}

}  // namespace

bool videoSupported() { return false; }

struct CVideoReader::Impl {};
CVideoReader::CVideoReader(const std::string&) { unsupported(); }
CVideoReader::CVideoReader(const void*, std::size_t, const std::string&, std::size_t) { unsupported(); }
CVideoReader::~CVideoReader() = default;
int CVideoReader::width() const { return 0; }
int CVideoReader::height() const { return 0; }
VideoRate CVideoReader::rate() const { return VideoRate(); }
long long CVideoReader::frameCount() const { return -1; }
std::string CVideoReader::codecName() const { return std::string(); }
bool CVideoReader::read(CTensor<float>&) { return false; }
bool CVideoReader::skip() { return false; }
long long CVideoReader::framesDecoded() const { return 0; }

struct CVideoWriter::Impl {};
CVideoWriter::CVideoWriter(const std::string&, int, int, VideoRate, const std::string&) { unsupported(); }
CVideoWriter::~CVideoWriter() = default;
void CVideoWriter::checkName(const std::string&) { unsupported(); }
void CVideoWriter::write(const CTensor<float>&) {}
void CVideoWriter::finish() {}
std::string CVideoWriter::codecDescription() const { return std::string(); }
long long CVideoWriter::framesWritten() const { return 0; }
