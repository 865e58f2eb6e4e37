#include "media/frame_reader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "engine/half_float.h"
#include "media/ffmpeg_log.h"

namespace ombrik {

namespace {
// Buffers handed out before, reused once nobody holds them any more: steady reading allocates
// nothing per frame. Up to `keep` are remembered; one of another size lets the idle ones go.
template <class T>
class BufferPool {
public:
  explicit BufferPool(std::size_t keep) : keep(keep) {}
  std::shared_ptr<std::vector<T>> take(std::size_t size) {
    for (auto& p : held)
      if (p.use_count() == 1 && p->size() == size) return p;
    auto fresh = std::make_shared<std::vector<T>>(size);
    std::erase_if(held, [](const auto& p) { return p.use_count() == 1; });
    if (held.size() < keep) held.push_back(fresh);
    return fresh;
  }

private:
  std::size_t keep;
  std::vector<std::shared_ptr<std::vector<T>>> held;
};
}  // namespace

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
  int seekCount = 0;
  int maxWidth = 0, maxHeight = 0;  // the size limit, as displayed
  bool planarWanted = false;
  bool ended = false;
  // The last decoded picture (the one shown until the next one's time) and the one decoded
  // after it, not reached yet. A frame index with no picture of its own shows the one before.
  AVFrame* cur = nullptr;
  int curIndex = -1;  // -1: none
  AVFrame* ahead = nullptr;
  int aheadIndex = -1;
  std::optional<SourcePicture> curPicture;  // `cur` converted, once

  std::filesystem::path path;

  // The demuxer and decoder; nothing, or the reason it can't be read.
  const char* openDecoder() {
    if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) return "pas une image ni un film";
    if (avformat_find_stream_info(format, nullptr) < 0) return "film tronqué ou abîmé";
    stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream < 0) return "aucune image vidéo";
    AVStream* st = format->streams[stream];
    const AVCodec* decoder = avcodec_find_decoder(st->codecpar->codec_id);
    if (!decoder) return "codec vidéo non pris en charge";
    codec = avcodec_alloc_context3(decoder);
    avcodec_parameters_to_context(codec, st->codecpar);
    codec->thread_count = 0;  // as many as the machine has
    if (avcodec_open2(codec, decoder, nullptr) < 0) return "codec vidéo non pris en charge";
    return nullptr;
  }

  // Back to the state of a fresh open, the first picture in `cur`. For the start this is the one
  // sure way to the pictures of a walk from the start: some files' first frames decode
  // differently after a seek (packed B-frames in AVI).
  bool rewind() {
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    forget();
    ended = false;
    ++seekCount;
    if (openDecoder() || !decodeNext()) return false;
    av_frame_move_ref(cur, frame);
    curIndex = 0;
    return true;
  }

  ~Impl() {
    if (sws) sws_freeContext(sws);
    if (cur) av_frame_free(&cur);
    if (ahead) av_frame_free(&ahead);
    if (frame) av_frame_free(&frame);
    if (packet) av_packet_free(&packet);
    if (codec) avcodec_free_context(&codec);
    if (format) avformat_close_input(&format);
  }

  static std::int64_t timestampOf(const AVFrame* f) {
    return f->best_effort_timestamp != AV_NOPTS_VALUE ? f->best_effort_timestamp : f->pts;
  }
  // The frame index a decoded frame stands for, from its timestamp; `fallback` without one.
  int indexOf(const AVFrame* f, int fallback) const {
    const std::int64_t pts = timestampOf(f);
    if (pts == AV_NOPTS_VALUE) return fallback;
    const double seconds = double(pts - startPts) * av_q2d(timeBase);
    return int(std::floor(seconds * info.fps + 0.5));
  }

  // Decodes the next picture into `into`; false at the end or on an error.
  bool decodeInto(AVFrame* into, int& index, int fallback) {
    if (!decodeNext()) return false;
    av_frame_unref(into);
    av_frame_move_ref(into, frame);
    index = indexOf(into, fallback);
    return true;
  }

  void forget() {
    curIndex = aheadIndex = -1;
    curPicture.reset();
    av_frame_unref(cur);
    av_frame_unref(ahead);
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

  // To the keyframe at or before `frame` (which may be negative: before the first picture).
  bool seekTo(int frame) {
    const std::int64_t ts = startPts + std::int64_t(std::llround(frame / info.fps / av_q2d(timeBase)));
    if (avformat_seek_file(format, stream, INT64_MIN, ts, ts, 0) < 0 &&
        av_seek_frame(format, stream, ts, AVSEEK_FLAG_BACKWARD) < 0)
      return false;
    avcodec_flush_buffers(codec);
    ended = false;
    ++seekCount;
    return true;
  }

  // Seeks so that the first picture decoded is at or before `target`, then decodes it into
  // `cur`. Index and timestamps don't always agree (a decoder delay, packed B-frames): when the
  // first picture comes out after the target, the seek goes further back.
  bool seekBefore(int target) {
    for (int margin : {0, 2, 8, 32, 128}) {
      if (target - margin <= 0) return rewind();  // the start itself: as fresh as an open
      if (!seekTo(target - margin)) continue;
      forget();
      if (!decodeInto(cur, curIndex, target)) continue;
      if (curIndex <= target) return true;
    }
    return curIndex >= 0;  // the best found: a picture after the target rather than none
  }

  BufferPool<std::uint16_t> pictureBuffers{4};
  BufferPool<std::uint8_t> planeBuffers{12};  // three a frame
  std::vector<std::uint16_t> scratch;

  // The frame's planes as they are, for the device to convert; nothing for what it doesn't
  // convert (RGB, alpha, big-endian, a turned clip), which the CPU path below handles.
  std::optional<SourcePicture> planar(const AVFrame* frame) {
    const AVPixFmtDescriptor* d = av_pix_fmt_desc_get(AVPixelFormat(frame->format));
    if (!d || info.rotation != 0 || d->nb_components != 3 || !(d->flags & AV_PIX_FMT_FLAG_PLANAR) ||
        (d->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_ALPHA | AV_PIX_FMT_FLAG_BE | AV_PIX_FMT_FLAG_PAL)))
      return std::nullopt;
    const int bits = d->comp[0].depth, bytes = d->comp[0].step;
    if (!((bits == 8 && bytes == 1) || (bits > 8 && bits <= 16 && bytes == 2))) return std::nullopt;
    for (int c = 0; c < 3; ++c)
      if (d->comp[c].plane != c || d->comp[c].step != bytes || d->comp[c].shift != 0) return std::nullopt;
    auto pic = std::make_shared<PlanarPicture>();
    int space = frame->colorspace;
    if (space == AVCOL_SPC_UNSPECIFIED) space = frame->height >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
    switch (space) {
      case AVCOL_SPC_BT709: pic->kr = 0.2126f, pic->kb = 0.0722f; break;
      case AVCOL_SPC_BT470BG:
      case AVCOL_SPC_SMPTE170M: pic->kr = 0.299f, pic->kb = 0.114f; break;
      case AVCOL_SPC_BT2020_NCL: pic->kr = 0.2627f, pic->kb = 0.0593f; break;
      case AVCOL_SPC_SMPTE240M: pic->kr = 0.212f, pic->kb = 0.087f; break;
      default: return std::nullopt;
    }
    pic->chromaShiftX = d->log2_chroma_w;
    pic->chromaShiftY = d->log2_chroma_h;
    pic->bytesPerSample = bytes;
    pic->bits = bits;
    const AVPixelFormat f = AVPixelFormat(frame->format);
    pic->fullRange = frame->color_range == AVCOL_RANGE_JPEG || f == AV_PIX_FMT_YUVJ420P || f == AV_PIX_FMT_YUVJ422P ||
                     f == AV_PIX_FMT_YUVJ444P;
    for (int c = 0; c < 3; ++c) {
      const int w = c ? AV_CEIL_RSHIFT(frame->width, d->log2_chroma_w) : frame->width;
      const int h = c ? AV_CEIL_RSHIFT(frame->height, d->log2_chroma_h) : frame->height;
      const int row = w * bytes, stride = (row + 3) / 4 * 4;
      auto buffer = planeBuffers.take(std::size_t(stride) * h);
      for (int y = 0; y < h; ++y) std::memcpy(buffer->data() + std::size_t(y) * stride, frame->data[c] + std::ptrdiff_t(y) * frame->linesize[c], row);
      pic->planes[c] = buffer;
      pic->strides[c] = stride;
    }
    SourcePicture out;
    out.width = frame->width;
    out.height = frame->height;
    out.planar = std::move(pic);
    return out;
  }

  std::optional<SourcePicture> convert(const AVFrame* frame) {
    const int rot = info.rotation;
    const bool turned = rot == 90 || rot == 270;
    int w = frame->width, h = frame->height;
    if (maxWidth > 0 && maxHeight > 0) {
      // The limit is for the picture as displayed: turned clips swap it.
      const double lw = turned ? maxHeight : maxWidth, lh = turned ? maxWidth : maxHeight;
      const double s = std::min({1.0, lw / w, lh / h});
      w = std::max(1, int(std::lround(w * s)));
      h = std::max(1, int(std::lround(h * s)));
    }
    sws = sws_getCachedContext(sws, frame->width, frame->height, AVPixelFormat(frame->format), w, h,
                               AV_PIX_FMT_RGBA64LE, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (!sws) return std::nullopt;
    // The clip's own matrix and range; HD without tags is taken as BT.709.
    int space = frame->colorspace;
    if (space == AVCOL_SPC_UNSPECIFIED) space = h >= 720 ? AVCOL_SPC_BT709 : AVCOL_SPC_BT470BG;
    const int* coefficients = sws_getCoefficients(space);
    const int fullIn = frame->color_range == AVCOL_RANGE_JPEG || AVPixelFormat(frame->format) == AV_PIX_FMT_YUVJ420P ? 1 : 0;
    sws_setColorspaceDetails(sws, coefficients, fullIn, sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    std::vector<std::uint16_t>& rgba = scratch;  // kept from frame to frame: no fresh pages each time
    rgba.resize(std::size_t(w) * h * 4);
    std::uint8_t* dst[4] = {reinterpret_cast<std::uint8_t*>(rgba.data()), nullptr, nullptr, nullptr};
    const int stride[4] = {w * 8, 0, 0, 0};
    sws_scale(sws, frame->data, frame->linesize, 0, frame->height, dst, stride);

    // Turned for display, then to half floats through a table of every 16-bit value.
    static const std::vector<std::uint16_t> toHalf = [] {
      std::vector<std::uint16_t> t(65536);
      for (int v = 0; v < 65536; ++v) t[v] = floatToHalf(v / 65535.0f);
      return t;
    }();
    const int ow = turned ? h : w, oh = turned ? w : h;
    auto halves = pictureBuffers.take(std::size_t(ow) * oh * 4);
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
int FrameReader::seeks() const { return impl_->seekCount; }

void FrameReader::setPlanar(bool planar) {
  if (planar == impl_->planarWanted) return;
  impl_->planarWanted = planar;
  impl_->curPicture.reset();
}

void FrameReader::setSizeLimit(int maxWidth, int maxHeight) {
  if (maxWidth == impl_->maxWidth && maxHeight == impl_->maxHeight) return;
  impl_->maxWidth = maxWidth;
  impl_->maxHeight = maxHeight;
  impl_->curPicture.reset();  // the held picture is converted again at the new size
}

std::unique_ptr<FrameReader> FrameReader::open(const std::filesystem::path& path, std::string* error) {
  auto fail = [&](const char* why) -> std::unique_ptr<FrameReader> {
    if (error) *error = "Vidéo illisible : " + path.filename().string() + " (" + why + ")";
    return nullptr;
  };
  std::error_code ec;
  // A pipe or a device would block the demuxer; a sequence's pattern ("plate_%04d.png") names no file.
  if (std::filesystem::exists(path, ec)) {
    if (!std::filesystem::is_regular_file(path, ec)) return fail("ce n'est pas un fichier ordinaire");
    if (std::filesystem::file_size(path, ec) == 0 && !ec) return fail("fichier vide");
  }
  quietFFmpegLog();
  auto d = std::make_unique<Impl>();
  d->path = path;
  if (const char* why = d->openDecoder()) return fail(why);
  AVStream* st = d->format->streams[d->stream];
  d->packet = av_packet_alloc();
  d->frame = av_frame_alloc();
  d->cur = av_frame_alloc();
  d->ahead = av_frame_alloc();
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
  if (info.width < 1 || info.height < 1) return fail("taille d'image inconnue");
  // The first picture is frame 0, whatever its timestamp: some files start a tick late. A file
  // with no picture that decodes isn't a clip.
  if (!d->decodeNext()) return fail("aucune image vidéo");
  if (const std::int64_t first = Impl::timestampOf(d->frame); first != AV_NOPTS_VALUE) d->startPts = first;
  av_frame_move_ref(d->cur, d->frame);
  d->curIndex = 0;
  return std::unique_ptr<FrameReader>(new FrameReader(std::move(d)));
}

std::optional<SourcePicture> FrameReader::read(int frame) {
  Impl& d = *impl_;
  const int target = std::clamp(frame, 0, d.info.frames - 1);
  // Reading on is cheaper than a seek for short gaps forward; anything else seeks to the
  // keyframe before the target and decodes forward from there.
  if (d.curIndex < 0 || target < d.curIndex || target - d.curIndex > kReadOnLimit) {
    if (!d.seekBefore(target)) {
      d.forget();
      return std::nullopt;
    }
  }
  for (;;) {
    if (d.aheadIndex < 0 && !d.decodeInto(d.ahead, d.aheadIndex, d.curIndex + 1)) {
      d.aheadIndex = -1;
      break;  // the end: the last picture holds
    }
    if (d.aheadIndex > target) break;
    std::swap(d.cur, d.ahead);
    d.curIndex = d.aheadIndex;
    d.aheadIndex = -1;
    d.curPicture.reset();
  }
  if (!d.curPicture && d.planarWanted) d.curPicture = d.planar(d.cur);
  if (!d.curPicture) d.curPicture = d.convert(d.cur);
  return d.curPicture;
}

int FrameReader::nextFrame() const { return std::max(impl_->curIndex, 0); }

}  // namespace ombrik
