// CVideoReader on FFmpeg: demuxing with libavformat, decoding with
// libavcodec, conversion to packed RGB (8 or 16 bits per sample) with
// libswscale, then to the planar float frame.
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "image/image_limits.h"
#include "video/ffmpeg_common.h"
#include "video/video_error.h"
#include "video/video_reader.h"

struct CVideoReader::Impl {
  std::string name;
  std::size_t maxPixels = NImageIO::kMaxImagePixels;
  // A file in memory, read through a custom I/O context.
  const uint8_t* memory = nullptr;
  std::size_t memorySize = 0, memoryPos = 0;
  AVIOContext* io = nullptr;
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  AVPacket* packet = nullptr;
  AVPacket* held = nullptr;  // a packet of the stream read ahead, sent next
  bool holding = false;
  AVFrame* frame = nullptr;
  SwsContext* sws = nullptr;
  int stream = -1;
  bool draining = false;  // the end of the file was reached; the decoder gives what it holds
  bool ended = false;     // the decoder is empty too
  std::string demuxerError;  // what the demuxer logged about a broken file, if anything
  long long decoded = 0;
  std::vector<uint8_t> packed;

  // What the conversion was last set up for, so that a stream that changes
  // size or colour description gets a matching converter.
  int swsWidth = 0, swsHeight = 0, swsFormat = -1, swsSpace = -1, swsRange = -1;

  ~Impl() {
    sws_freeContext(sws);
    av_frame_free(&frame);
    av_packet_free(&packet);
    av_packet_free(&held);
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    if (io != nullptr) av_freep(&io->buffer);
    avio_context_free(&io);
  }

  [[noreturn]] void fail(const std::string& why) const {
    throw EVideoError("Could not read video " + name + ": " + why);
  }

  std::string afterFrame() const {
    return decoded == 0 ? "before its first frame" : "after frame " + std::to_string(decoded - 1);
  }

  void open(const std::string& filename);
  void openMemory();
  static int readMemory(void* opaque, uint8_t* buffer, int size);
  static int64_t seekMemory(void* opaque, int64_t offset, int whence);
  void openStreams();
  int readPacket();
  bool streamGoesOn();
  bool next();
  void checkFrame() const;
  void convert(CTensor<float>& out);
};

namespace {

bool sizeAccepted(long long width, long long height, std::size_t maxPixels) {
  return width > 0 && height > 0 && width <= NImageIO::kMaxImageSide && height <= NImageIO::kMaxImageSide &&
         static_cast<unsigned long long>(width * height) <= maxPixels;
}

}  // namespace

int CVideoReader::Impl::readMemory(void* opaque, uint8_t* buffer, int size) {
  Impl& m = *static_cast<Impl*>(opaque);
  const std::size_t left = m.memorySize - m.memoryPos;
  const int n = static_cast<int>(left < static_cast<std::size_t>(size) ? left : static_cast<std::size_t>(size));
  if (n == 0) return AVERROR_EOF;
  std::memcpy(buffer, m.memory + m.memoryPos, static_cast<std::size_t>(n));
  m.memoryPos += static_cast<std::size_t>(n);
  return n;
}

int64_t CVideoReader::Impl::seekMemory(void* opaque, int64_t offset, int whence) {
  Impl& m = *static_cast<Impl*>(opaque);
  const int64_t size = static_cast<int64_t>(m.memorySize);
  if ((whence & ~AVSEEK_FORCE) == AVSEEK_SIZE) return size;
  int64_t to = offset;
  switch (whence & ~AVSEEK_FORCE) {
    case SEEK_SET: break;
    case SEEK_CUR: to += static_cast<int64_t>(m.memoryPos); break;
    case SEEK_END: to += size; break;
    default: return AVERROR(EINVAL);
  }
  if (to < 0 || to > size) return AVERROR(EINVAL);
  m.memoryPos = static_cast<std::size_t>(to);
  return to;
}

void CVideoReader::Impl::open(const std::string& filename) {
  name = filename;
  NVideo::quietLibraries();
  struct stat info;
  if (stat(filename.c_str(), &info) != 0) throw EVideoError("File not found: " + filename);
  format = avformat_alloc_context();
  if (format == nullptr) fail("out of memory");
  openStreams();
}

void CVideoReader::Impl::openMemory() {
  NVideo::quietLibraries();
  constexpr int kBufferBytes = 4096;
  uint8_t* buffer = static_cast<uint8_t*>(av_malloc(kBufferBytes));
  if (buffer != nullptr) io = avio_alloc_context(buffer, kBufferBytes, 0, this, readMemory, nullptr, seekMemory);
  if (io == nullptr) {
    av_free(buffer);
    fail("out of memory");
  }
  format = avformat_alloc_context();
  if (format == nullptr) fail("out of memory");
  format->pb = io;
  format->flags |= AVFMT_FLAG_CUSTOM_IO;
  openStreams();
}

void CVideoReader::Impl::openStreams() {
  // The demuxer's own words say more than its return code ("moov atom not
  // found" for an MP4 file cut off before its index).
  const auto reason = [this](int code) { return demuxerError.empty() ? NVideo::errorText(code) : demuxerError; };
  int r;
  {
    NVideo::CLogCapture capture(format, demuxerError);
    r = avformat_open_input(&format, name.c_str(), nullptr, nullptr);  // frees format on failure
    if (r < 0) fail("not a video file FFmpeg can read, or a damaged one (" + reason(r) + ")");
    r = avformat_find_stream_info(format, nullptr);
  }
  if (r < 0) fail("its streams cannot be read (" + reason(r) + ")");
  const AVCodec* decoder = nullptr;
  stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, &decoder, 0);
  if (stream == AVERROR_DECODER_NOT_FOUND) fail("this FFmpeg has no decoder for its video codec");
  if (stream < 0) {
    fail(demuxerError.empty() ? "it holds no video stream"
                              : "it holds no readable video stream (" + demuxerError + ")");
  }
  // An error logged while the first packets were read stands: the file
  // breaks off early, which shows once the frames before it are decoded.
  const AVCodecParameters* params = format->streams[stream]->codecpar;
  if (!sizeAccepted(params->width, params->height, maxPixels)) {
    fail("frames of " + std::to_string(params->width) + " x " + std::to_string(params->height) +
         " pixels are empty or too large");
  }
  codec = avcodec_alloc_context3(decoder);
  packet = av_packet_alloc();
  held = av_packet_alloc();
  frame = av_frame_alloc();
  if (codec == nullptr || packet == nullptr || held == nullptr || frame == nullptr) fail("out of memory");
  r = avcodec_parameters_to_context(codec, params);
  if (r >= 0) r = avcodec_open2(codec, decoder, nullptr);
  if (r < 0) fail("its decoder cannot start (" + NVideo::errorText(r) + ")");
}

void CVideoReader::Impl::checkFrame() const {
  if (!sizeAccepted(frame->width, frame->height, maxPixels)) {
    fail("frame " + std::to_string(decoded) + " of " + std::to_string(frame->width) + " x " +
         std::to_string(frame->height) + " pixels is empty or too large");
  }
  if ((frame->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame->decode_error_flags != 0) {
    fail("frame " + std::to_string(decoded) + " is damaged");
  }
}

bool CVideoReader::Impl::next() {
  if (ended) return false;
  for (;;) {
    int r = avcodec_receive_frame(codec, frame);
    if (r == 0) {
      checkFrame();
      ++decoded;
      return true;
    }
    if (r == AVERROR_EOF) {
      ended = true;
      if (!demuxerError.empty())
        fail("it breaks off " + afterFrame() + " (" + demuxerError + "): the file is truncated or damaged");
      const long long announced = format->streams[stream]->nb_frames;
      if (announced > decoded) {
        fail("it ends after " + std::to_string(decoded) + " of the " + std::to_string(announced) +
             " frames it announces: the file is truncated");
      }
      return false;
    }
    if (r != AVERROR(EAGAIN)) fail("damaged data " + afterFrame() + " (" + NVideo::errorText(r) + ")");
    if (draining) fail("the decoder stopped " + afterFrame());

    r = readPacket();
    if (r == AVERROR_EOF) {
      draining = true;
      avcodec_send_packet(codec, nullptr);
      continue;
    }
    if (r < 0) fail("reading failed " + afterFrame() + " (" + NVideo::errorText(r) + ")");
    if (packet->stream_index != stream) {
      av_packet_unref(packet);
      continue;
    }
    if ((packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
      if (!streamGoesOn()) {
        av_packet_unref(packet);
        fail("damaged or cut-off data " + afterFrame() + ": the file is truncated or broken");
      }
      demuxerError.clear();  // the demuxer's complaint was about this packet
    }
    r = avcodec_send_packet(codec, packet);
    av_packet_unref(packet);
    if (r < 0 && r != AVERROR(EAGAIN)) fail("damaged data " + afterFrame() + " (" + NVideo::errorText(r) + ")");
  }
}

// The next packet into `packet`: the one read ahead, else the demuxer's.
int CVideoReader::Impl::readPacket() {
  if (holding) {
    holding = false;
    av_packet_move_ref(packet, held);
    return 0;
  }
  NVideo::CLogCapture capture(format, demuxerError);
  return av_read_frame(format, packet);
}

// Whether another packet of the video stream follows the current one; it is
// kept in `held` for the next readPacket().
bool CVideoReader::Impl::streamGoesOn() {
  for (;;) {
    int r;
    {
      NVideo::CLogCapture capture(format, demuxerError);
      r = av_read_frame(format, held);
    }
    if (r < 0) return false;
    if (held->stream_index == stream) return holding = true;
    av_packet_unref(held);
  }
}

void CVideoReader::Impl::convert(CTensor<float>& out) {
  const int w = frame->width, h = frame->height;
  const AVPixelFormat source = static_cast<AVPixelFormat>(frame->format);
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(source);
  if (desc == nullptr) fail("frame " + std::to_string(decoded - 1) + " has no known pixel format");
  // Deeper video keeps its precision through 16-bit samples.
  const bool deep = desc->comp[0].depth > 8;
  const AVPixelFormat target = deep ? AV_PIX_FMT_RGB48 : AV_PIX_FMT_RGB24;
  // The colour description as the stream gave it, which a damaged stream
  // may leave outside the enumerations: read as integers, unknown values
  // taken as unspecified.
  int colorspace = 0, range = 0;
  std::memcpy(&colorspace, &frame->colorspace, sizeof colorspace);
  std::memcpy(&range, &frame->color_range, sizeof range);
  if (colorspace < 0 || colorspace >= AVCOL_SPC_NB) colorspace = AVCOL_SPC_UNSPECIFIED;
  if (range < 0 || range >= AVCOL_RANGE_NB) range = AVCOL_RANGE_UNSPECIFIED;
  if (w != swsWidth || h != swsHeight || source != swsFormat || colorspace != swsSpace || range != swsRange) {
    sws = sws_getCachedContext(sws, w, h, source, w, h, target, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                               nullptr, nullptr, nullptr);
    if (sws == nullptr) fail("its pixel format " + std::string(desc->name) + " cannot be converted to RGB");
    // YUV to RGB with the matrix and range the stream declares (BT.601 and
    // limited range when it declares nothing; the old "yuvj" formats are
    // full range by definition).
    if ((desc->flags & AV_PIX_FMT_FLAG_RGB) == 0) {
      const bool fullRange = range == AVCOL_RANGE_JPEG || source == AV_PIX_FMT_YUVJ420P ||
                             source == AV_PIX_FMT_YUVJ422P || source == AV_PIX_FMT_YUVJ444P;
      const int space = colorspace == AVCOL_SPC_UNSPECIFIED ? SWS_CS_DEFAULT : colorspace;
      sws_setColorspaceDetails(sws, sws_getCoefficients(space), fullRange ? 1 : 0,
                               sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    }
    swsWidth = w;
    swsHeight = h;
    swsFormat = source;
    swsSpace = colorspace;
    swsRange = range;
  }
  const int bytesPerSample = deep ? 2 : 1;
  const int lineSize = 3 * w * bytesPerSample;
  packed.resize(static_cast<size_t>(lineSize) * h);
  uint8_t* planes[4] = {packed.data(), nullptr, nullptr, nullptr};
  int lines[4] = {lineSize, 0, 0, 0};
  sws_scale(sws, frame->data, frame->linesize, 0, h, planes, lines);

  // A frame of the same size is overwritten in place (no allocation per frame).
  if (out.xSize != w || out.ySize != h || out.zSize != 3 || out.data == nullptr) out = CTensor<float>(w, h, 3);
  float* result = out.data;
  const size_t plane = static_cast<size_t>(w) * h;
  if (deep) {
    const uint16_t* samples = reinterpret_cast<const uint16_t*>(packed.data());
    for (size_t i = 0; i < plane; ++i)
      for (int c = 0; c < 3; ++c) result[c * plane + i] = samples[3 * i + c] * (255.0f / 65535.0f);
  } else {
    for (size_t i = 0; i < plane; ++i)
      for (int c = 0; c < 3; ++c) result[c * plane + i] = packed[3 * i + c];
  }
}

CVideoReader::CVideoReader(const std::string& filename) : impl_(new Impl) { impl_->open(filename); }

CVideoReader::CVideoReader(const void* data, std::size_t size, const std::string& name, std::size_t maxPixels)
    : impl_(new Impl) {
  impl_->name = name;
  impl_->maxPixels = maxPixels;
  impl_->memory = static_cast<const uint8_t*>(data);
  impl_->memorySize = size;
  impl_->openMemory();
}

CVideoReader::~CVideoReader() = default;

int CVideoReader::width() const { return impl_->codec->width; }

int CVideoReader::height() const { return impl_->codec->height; }

VideoRate CVideoReader::rate() const {
  const AVRational r = av_guess_frame_rate(impl_->format, impl_->format->streams[impl_->stream], nullptr);
  VideoRate rate;
  if (r.num > 0 && r.den > 0) {
    rate.num = r.num;
    rate.den = r.den;
  }
  return rate;
}

long long CVideoReader::frameCount() const {
  const long long n = impl_->format->streams[impl_->stream]->nb_frames;
  return n > 0 ? n : -1;
}

std::string CVideoReader::codecName() const { return avcodec_get_name(impl_->codec->codec_id); }

bool CVideoReader::read(CTensor<float>& frame) {
  if (!impl_->next()) return false;
  impl_->convert(frame);
  return true;
}

bool CVideoReader::skip() { return impl_->next(); }

long long CVideoReader::framesDecoded() const { return impl_->decoded; }
