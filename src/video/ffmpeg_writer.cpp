// CVideoWriter on FFmpeg: frames packed to RGB24, converted by libswscale
// to the encoder's pixel format, encoded by libavcodec and muxed by
// libavformat into a temporary file that is moved under its name at the end.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "image/atomic_file.h"
#include "video/ffmpeg_common.h"
#include "video/video_error.h"
#include "video/video_writer.h"

namespace {

// Frames of the default codecs are stored in 4:2:0 YUV, the form that
// every player and browser decodes.
constexpr AVPixelFormat kPlayableFormat = AV_PIX_FMT_YUV420P;

bool containerTakes(const AVOutputFormat* container, AVCodecID id) {
  return avformat_query_codec(container, id, FF_COMPLIANCE_NORMAL) == 1;
}

std::string codecWords(const AVCodec* encoder) {
  if (encoder->id == AV_CODEC_ID_H264) return std::string("H.264 (") + encoder->name + ")";
  if (encoder->id == AV_CODEC_ID_MPEG4) return std::string("MPEG-4 Part 2 (") + encoder->name + ")";
  return encoder->name;
}

bool supports(const AVCodec* encoder, AVPixelFormat format) {
  if (encoder->pix_fmts == nullptr) return false;
  for (const AVPixelFormat* f = encoder->pix_fmts; *f != AV_PIX_FMT_NONE; ++f)
    if (*f == format) return true;
  return false;
}

uint8_t toSample(float value) {
  const float clamped = std::isnan(value) ? 0.0f : std::fmin(255.0f, std::fmax(0.0f, value));
  return static_cast<uint8_t>(std::lround(clamped));
}

}  // namespace

struct CVideoWriter::Impl {
  std::string name;
  std::unique_ptr<CAtomicFile> file;
  const AVOutputFormat* container = nullptr;
  const AVCodec* encoder = nullptr;
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  AVStream* stream = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  SwsContext* sws = nullptr;
  bool headerWritten = false;
  bool finished = false;
  int width = 0, height = 0;  // frames as given
  long long written = 0;
  std::vector<uint8_t> packed;

  ~Impl() {
    sws_freeContext(sws);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&codec);
    if (format != nullptr && !(container->flags & AVFMT_NOFILE)) avio_closep(&format->pb);
    avformat_free_context(format);
  }

  [[noreturn]] void fail(const std::string& why) const {
    throw EVideoError("Could not write video " + name + ": " + why);
  }

  void chooseContainer();
  void chooseEncoder(const std::string& requested);
  void open(int w, int h, VideoRate rate);
  void drain();
};

void CVideoWriter::Impl::chooseContainer() {
  container = av_guess_format(nullptr, name.c_str(), nullptr);
  if (container == nullptr || container->video_codec == AV_CODEC_ID_NONE ||
      std::strcmp(container->name, "image2") == 0 || (container->flags & AVFMT_NOFILE)) {
    fail("its extension names no video format (use .mp4, .mkv, .avi or .mov)");
  }
}

void CVideoWriter::Impl::chooseEncoder(const std::string& requested) {
  if (!requested.empty()) {
    encoder = avcodec_find_encoder_by_name(requested.c_str());
    if (encoder == nullptr || encoder->type != AVMEDIA_TYPE_VIDEO)
      fail("this FFmpeg has no video encoder " + requested);
    if (avformat_query_codec(container, encoder->id, FF_COMPLIANCE_NORMAL) == 0)
      fail(std::string("the ") + container->name + " format does not take " + codecWords(encoder));
    return;
  }
  for (AVCodecID id : {AV_CODEC_ID_H264, AV_CODEC_ID_MPEG4}) {
    const AVCodec* candidate = avcodec_find_encoder(id);
    if (candidate != nullptr && supports(candidate, kPlayableFormat) && containerTakes(container, id)) {
      encoder = candidate;
      return;
    }
  }
  fail(std::string("neither H.264 nor MPEG-4 Part 2 can be encoded into the ") + container->name + " format here");
}

void CVideoWriter::Impl::open(int w, int h, VideoRate rate) {
  width = w;
  height = h;
  AVPixelFormat pixels = kPlayableFormat;
  if (encoder->pix_fmts == nullptr) {
    // An encoder that lists no formats (rawvideo) takes any: RGB as given.
    pixels = AV_PIX_FMT_RGB24;
  } else if (!supports(encoder, kPlayableFormat)) {
    // Another encoder asked for by name: the format closest to RGB it takes.
    pixels = avcodec_find_best_pix_fmt_of_list(encoder->pix_fmts, AV_PIX_FMT_RGB24, 0, nullptr);
    if (pixels == AV_PIX_FMT_NONE) fail(codecWords(encoder) + " takes no pixel format this writer can give it");
  } else if (encoder->id != AV_CODEC_ID_H264 && encoder->id != AV_CODEC_ID_MPEG4) {
    // A lossless or RGB-capable encoder asked for by name keeps the colours.
    const AVPixelFormat best = avcodec_find_best_pix_fmt_of_list(encoder->pix_fmts, AV_PIX_FMT_RGB24, 0, nullptr);
    if (best != AV_PIX_FMT_NONE) pixels = best;
  }
  const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(pixels);
  // Subsampled chroma needs even sizes: pad by one column or row.
  const int codedWidth = desc->log2_chroma_w > 0 ? (w + 1) & ~1 : w;
  const int codedHeight = desc->log2_chroma_h > 0 ? (h + 1) & ~1 : h;

  avformat_alloc_output_context2(&format, container, nullptr, file->tempPath());
  codec = avcodec_alloc_context3(encoder);
  frame = av_frame_alloc();
  packet = av_packet_alloc();
  if (format == nullptr || codec == nullptr || frame == nullptr || packet == nullptr) fail("out of memory");
  codec->width = codedWidth;
  codec->height = codedHeight;
  codec->pix_fmt = pixels;
  codec->time_base = AVRational{rate.den, rate.num};
  codec->framerate = AVRational{rate.num, rate.den};
  codec->gop_size = 12;
  // RGB goes to YUV by BT.601 in limited range (libswscale's default), and
  // the stream says so, so that players convert back the same way.
  codec->colorspace = AVCOL_SPC_SMPTE170M;
  codec->color_range = AVCOL_RANGE_MPEG;
  if (container->flags & AVFMT_GLOBALHEADER) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* settings = nullptr;
  if (std::strcmp(encoder->name, "libx264") == 0) {
    av_dict_set(&settings, "preset", "medium", 0);
    av_dict_set(&settings, "crf", "18", 0);  // visually lossless for flat colour fields
  } else if (encoder->id == AV_CODEC_ID_MPEG4) {
    codec->flags |= AV_CODEC_FLAG_QSCALE;    // fixed quantiser 3: good quality at any size
    codec->global_quality = FF_QP2LAMBDA * 3;
  }
  int r = avcodec_open2(codec, encoder, &settings);
  av_dict_free(&settings);
  if (r < 0) fail(codecWords(encoder) + " cannot start (" + NVideo::errorText(r) + ")");

  stream = avformat_new_stream(format, nullptr);
  if (stream == nullptr) fail("out of memory");
  r = avcodec_parameters_from_context(stream->codecpar, codec);
  if (r < 0) fail(NVideo::errorText(r));
  stream->time_base = codec->time_base;
  stream->avg_frame_rate = codec->framerate;
  if (!(container->flags & AVFMT_NOFILE)) {
    r = avio_open(&format->pb, file->tempPath(), AVIO_FLAG_WRITE);
    if (r < 0) fail(NVideo::errorText(r));
  }
  r = avformat_write_header(format, nullptr);
  if (r < 0) fail("the " + std::string(container->name) + " header cannot be written (" + NVideo::errorText(r) + ")");
  headerWritten = true;

  frame->format = pixels;
  frame->width = codedWidth;
  frame->height = codedHeight;
  r = av_frame_get_buffer(frame, 0);
  if (r < 0) fail(NVideo::errorText(r));
  sws = sws_getContext(codedWidth, codedHeight, AV_PIX_FMT_RGB24, codedWidth, codedHeight, pixels,
                       SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT, nullptr, nullptr, nullptr);
  if (sws == nullptr) fail(std::string("RGB cannot be converted to ") + desc->name);
  packed.resize(static_cast<size_t>(3) * codedWidth * codedHeight);
}

// Moves every packet the encoder has ready into the file.
void CVideoWriter::Impl::drain() {
  for (;;) {
    int r = avcodec_receive_packet(codec, packet);
    if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return;
    if (r < 0) fail("encoding failed (" + NVideo::errorText(r) + ")");
    av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
    packet->stream_index = stream->index;
    r = av_interleaved_write_frame(format, packet);
    if (r < 0) fail("writing failed (" + NVideo::errorText(r) + ")");
  }
}

CVideoWriter::CVideoWriter(const std::string& filename, int width, int height, VideoRate rate,
                           const std::string& codec)
    : impl_(new Impl) {
  Impl& m = *impl_;
  m.name = filename;
  NVideo::quietLibraries();
  if (width < 1 || height < 1)
    m.fail("frames of " + std::to_string(width) + " x " + std::to_string(height) + " are empty");
  if (!rate.known()) m.fail("the frame rate is not known");
  m.chooseContainer();
  m.chooseEncoder(codec);
  m.file = std::make_unique<CAtomicFile>(filename);
  m.open(width, height, rate);
}

CVideoWriter::~CVideoWriter() = default;

void CVideoWriter::checkName(const std::string& filename) {
  Impl m;
  m.name = filename;
  m.chooseContainer();
}

void CVideoWriter::write(const CTensor<float>& image) {
  Impl& m = *impl_;
  if (m.finished) m.fail("frames written after the end");
  if (image.xSize != m.width || image.ySize != m.height || (image.zSize != 1 && image.zSize != 3) ||
      image.data == nullptr) {
    m.fail("a frame of " + std::to_string(image.xSize) + " x " + std::to_string(image.ySize) + " x " +
           std::to_string(image.zSize) + " does not fit a video of " + std::to_string(m.width) + " x " +
           std::to_string(m.height) + " x 3");
  }
  const int cw = m.frame->width, ch = m.frame->height;
  const size_t plane = image.planeSize();
  for (int y = 0; y < ch; ++y) {
    const int sy = std::min(y, m.height - 1);  // padding rows and columns copy the edge
    for (int x = 0; x < cw; ++x) {
      const size_t i = static_cast<size_t>(sy) * m.width + std::min(x, m.width - 1);
      uint8_t* out = &m.packed[3 * (static_cast<size_t>(y) * cw + x)];
      for (int c = 0; c < 3; ++c) out[c] = toSample(image.data[(image.zSize == 3 ? c : 0) * plane + i]);
    }
  }
  int r = av_frame_make_writable(m.frame);
  if (r < 0) m.fail(NVideo::errorText(r));
  const uint8_t* source[4] = {m.packed.data(), nullptr, nullptr, nullptr};
  const int lines[4] = {3 * cw, 0, 0, 0};
  sws_scale(m.sws, source, lines, 0, ch, m.frame->data, m.frame->linesize);
  m.frame->pts = m.written;
  if (m.codec->flags & AV_CODEC_FLAG_QSCALE) m.frame->quality = m.codec->global_quality;
  r = avcodec_send_frame(m.codec, m.frame);
  if (r < 0) m.fail("encoding failed (" + NVideo::errorText(r) + ")");
  m.drain();
  ++m.written;
}

void CVideoWriter::finish() {
  Impl& m = *impl_;
  if (m.finished) return;
  m.finished = true;
  int r = avcodec_send_frame(m.codec, nullptr);
  if (r < 0) m.fail("encoding failed (" + NVideo::errorText(r) + ")");
  m.drain();
  r = av_write_trailer(m.format);
  if (r < 0) m.fail("the file cannot be completed (" + NVideo::errorText(r) + ")");
  if (!(m.container->flags & AVFMT_NOFILE)) {
    r = avio_closep(&m.format->pb);
    if (r < 0) m.fail("the file cannot be completed (" + NVideo::errorText(r) + ")");
  }
  m.file->commit();
}

std::string CVideoWriter::codecDescription() const { return codecWords(impl_->encoder); }

long long CVideoWriter::framesWritten() const { return impl_->written; }
