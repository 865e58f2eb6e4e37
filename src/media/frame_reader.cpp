#include "media/frame_reader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/half_float.h"

namespace ombrik {

struct FrameReader::Impl {
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  AVPacket* packet = nullptr;
  AVFrame* frame = nullptr;
  SwsContext* sws = nullptr;
  int stream = -1;
  AVRational timeBase{1, 25};
  std::int64_t startPts = 0;
  ClipInfo info;
  int next = 0;   // the frame the decoder will give next, when known
  int seekCount = 0;
  bool ended = false;

  ~Impl() {
    if (sws) sws_freeContext(sws);
    if (frame) av_frame_free(&frame);
    if (packet) av_packet_free(&packet);
    if (codec) avcodec_free_context(&codec);
    if (format) avformat_close_input(&format);
  }

  // The frame index a decoded frame stands for, from its timestamp.
  int indexOf(const AVFrame* f) const {
    std::int64_t pts = f->best_effort_timestamp != AV_NOPTS_VALUE ? f->best_effort_timestamp : f->pts;
    if (pts == AV_NOPTS_VALUE) return next;
    const double seconds = double(pts - startPts) * av_q2d(timeBase);
    return int(std::floor(seconds * info.fps + 0.5));
  }

  // Decodes the next frame into `frame`; false at the end of the clip or on an error.
  bool decodeNext() {
    for (;;) {
      const int r = avcodec_receive_frame(codec, frame);
      if (r == 0) return true;
      if (r != AVERROR(EAGAIN)) return false;
      if (ended) return false;
      int got;
      while ((got = av_read_frame(format, packet)) >= 0 && packet->stream_index != stream) av_packet_unref(packet);
      if (got < 0) {
        ended = true;
        avcodec_send_packet(codec, nullptr);  // drain what the decoder holds
        continue;
      }
      const int sent = avcodec_send_packet(codec, packet);
      av_packet_unref(packet);
      if (sent < 0 && sent != AVERROR(EAGAIN)) return false;
    }
  }

  bool seekTo(int target) {
    const std::int64_t ts = startPts + std::int64_t(std::llround(target / info.fps / av_q2d(timeBase)));
    if (av_seek_frame(format, stream, ts, AVSEEK_FLAG_BACKWARD) < 0) return false;
    avcodec_flush_buffers(codec);
    ended = false;
    ++seekCount;
    return true;
  }

  std::optional<SourcePicture> convert() {
    const int w = frame->width, h = frame->height;
    sws = sws_getCachedContext(sws, w, h, AVPixelFormat(frame->format), w, h, AV_PIX_FMT_RGBA64LE, SWS_BILINEAR,
                               nullptr, nullptr, nullptr);
    if (!sws) return std::nullopt;
    // The clip's own matrix and range; HD without tags is taken as BT.709.
    int space = frame->colorspace;
    if (space == AVCOL_SPC_UNSPECIFIED) space = h >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
    const int* coefficients = sws_getCoefficients(space);
    const int fullIn = frame->color_range == AVCOL_RANGE_JPEG || AVPixelFormat(frame->format) == AV_PIX_FMT_YUVJ420P ? 1 : 0;
    sws_setColorspaceDetails(sws, coefficients, fullIn, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    std::vector<std::uint16_t> rgba(std::size_t(w) * h * 4);
    std::uint8_t* dst[4] = {reinterpret_cast<std::uint8_t*>(rgba.data()), nullptr, nullptr, nullptr};
    const int stride[4] = {w * 8, 0, 0, 0};
    sws_scale(sws, frame->data, frame->linesize, 0, h, dst, stride);

    // Turned for display, then to half floats through a table of every 16-bit value.
    static const std::vector<std::uint16_t> toHalf = [] {
      std::vector<std::uint16_t> t(65536);
      for (int v = 0; v < 65536; ++v) t[v] = floatToHalf(v / 65535.0f);
      return t;
    }();
    const int rot = info.rotation;
    const int ow = rot == 90 || rot == 270 ? h : w, oh = rot == 90 || rot == 270 ? w : h;
    auto halves = std::make_shared<std::vector<std::uint16_t>>(std::size_t(ow) * oh * 4);
    if (rot == 0) {
      std::transform(rgba.begin(), rgba.end(), halves->begin(), [](std::uint16_t v) { return toHalf[v]; });
      return SourcePicture{ow, oh, halves};
    }
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        int ox = x, oy = y;
        if (rot == 90) ox = h - 1 - y, oy = x;
        else if (rot == 180) ox = w - 1 - x, oy = h - 1 - y;
        else if (rot == 270) ox = y, oy = w - 1 - x;
        const std::uint16_t* p = &rgba[(std::size_t(y) * w + x) * 4];
        std::uint16_t* q = &(*halves)[(std::size_t(oy) * ow + ox) * 4];
        for (int c = 0; c < 4; ++c) q[c] = toHalf[p[c]];
      }
    return SourcePicture{ow, oh, halves};
  }
};

FrameReader::FrameReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
FrameReader::~FrameReader() = default;
const ClipInfo& FrameReader::info() const { return impl_->info; }
int FrameReader::nextFrame() const { return impl_->next; }
int FrameReader::seeks() const { return impl_->seekCount; }

std::unique_ptr<FrameReader> FrameReader::open(const std::filesystem::path& path, std::string* error) {
  auto fail = [&](const char* why) -> std::unique_ptr<FrameReader> {
    if (error) *error = std::string(why) + " : " + path.filename().string();
    return nullptr;
  };
  // FFmpeg's notes (a missing fast path, a timestamp fixed up) aren't the user's business.
  static const bool quiet = [] {
    av_log_set_level(AV_LOG_ERROR);
    return true;
  }();
  (void)quiet;
  auto d = std::make_unique<Impl>();
  if (avformat_open_input(&d->format, path.c_str(), nullptr, nullptr) < 0) return fail("Vidéo illisible");
  if (avformat_find_stream_info(d->format, nullptr) < 0) return fail("Vidéo illisible");
  d->stream = av_find_best_stream(d->format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (d->stream < 0) return fail("Aucune piste vidéo");
  AVStream* st = d->format->streams[d->stream];
  const AVCodec* decoder = avcodec_find_decoder(st->codecpar->codec_id);
  if (!decoder) return fail("Codec vidéo non pris en charge");
  d->codec = avcodec_alloc_context3(decoder);
  avcodec_parameters_to_context(d->codec, st->codecpar);
  d->codec->thread_count = 0;  // as many as the machine has
  if (avcodec_open2(d->codec, decoder, nullptr) < 0) return fail("Codec vidéo non pris en charge");
  d->packet = av_packet_alloc();
  d->frame = av_frame_alloc();
  d->timeBase = st->time_base;
  d->startPts = st->start_time != AV_NOPTS_VALUE ? st->start_time : 0;

  ClipInfo& info = d->info;
  const AVRational rate = st->avg_frame_rate.num > 0 ? st->avg_frame_rate : st->r_frame_rate;
  info.fps = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
  if (!(info.fps > 0)) info.fps = 25.0;
  double seconds = st->duration != AV_NOPTS_VALUE ? st->duration * av_q2d(st->time_base)
                                                  : d->format->duration > 0 ? d->format->duration / double(AV_TIME_BASE) : 0;
  info.frames = st->nb_frames > 0 ? int(st->nb_frames) : std::max(1, int(seconds * info.fps));
  info.frames = std::max(1, info.frames);
  info.duration = seconds > 0 ? seconds : info.frames / info.fps;
  // Rotation from the display matrix, turned into the clockwise angle the picture is shown at.
  if (const std::uint8_t* matrix = av_stream_get_side_data(st, AV_PKT_DATA_DISPLAYMATRIX, nullptr)) {
    const double angle = -av_display_rotation_get(reinterpret_cast<const std::int32_t*>(matrix));
    info.rotation = ((int(std::lround(angle / 90.0)) * 90) % 360 + 360) % 360;
  }
  const bool turned = info.rotation == 90 || info.rotation == 270;
  info.width = turned ? st->codecpar->height : st->codecpar->width;
  info.height = turned ? st->codecpar->width : st->codecpar->height;
  if (info.width < 1 || info.height < 1) return fail("Vidéo illisible");
  return std::unique_ptr<FrameReader>(new FrameReader(std::move(d)));
}

bool FrameReader::skip() {
  Impl& d = *impl_;
  if (d.next >= d.info.frames || !d.decodeNext()) return false;
  d.next = d.indexOf(d.frame) + 1;
  av_frame_unref(d.frame);
  return true;
}

std::optional<SourcePicture> FrameReader::read(int frame) {
  Impl& d = *impl_;
  const int target = std::clamp(frame, 0, d.info.frames - 1);
  if (target != d.next && !d.seekTo(target)) return std::nullopt;
  // Decode forward to the frame whose timestamp is the target's; past the last one, the last.
  std::optional<SourcePicture> last;
  for (;;) {
    if (!d.decodeNext()) {
      d.next = d.info.frames;  // unknown position: the next read seeks
      return last;
    }
    const int index = d.indexOf(d.frame);
    if (index < target) {
      av_frame_unref(d.frame);
      continue;
    }
    auto picture = d.convert();
    av_frame_unref(d.frame);
    d.next = index + 1;
    return picture;
  }
}

}  // namespace ombrik
