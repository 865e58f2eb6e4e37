#include "media/movie_writer.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "engine/half_float.h"
#include "media/ffmpeg_log.h"
#include "engine/source_picture.h"

namespace ombrik {
namespace fs = std::filesystem;

namespace {

std::string lowerExtension(const fs::path& path) {
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return ext;
}

// The frame rate as a rational: the NTSC rates exactly, any other to a thousandth, so that the
// track's time scale is round(fps * 1000) and frame i sits at i * 1000.
AVRational frameRateOf(double fps, bool exact) {
  for (const int base : {24, 30, 60})
    if (!exact && std::abs(fps - base * 1000.0 / 1001.0) < 0.01) return {base * 1000, 1001};
  return {fps > 0 ? int(std::clamp<long>(std::lround(fps * 1000), 1, 1000000)) : 1000, 1000};
}

// What an FFmpeg error means for the user, naming the folder where it is about the folder.
std::string causeOf(int err, const fs::path& dir) {
  switch (err) {
    case AVERROR(ENOENT):
    case AVERROR(ENOTDIR): return "le dossier n'existe pas : " + dir.string();
    case AVERROR(EACCES):
    case AVERROR(EPERM): return "accès refusé au dossier " + dir.string();
    case AVERROR(EROFS): return "le dossier est en lecture seule : " + dir.string();
    case AVERROR(ENOSPC):
    case AVERROR(EDQUOT): return "le disque est plein";
    default: {
      char text[AV_ERROR_MAX_STRING_SIZE] = {};
      av_strerror(err, text, sizeof text);
      return text;
    }
  }
}

std::string randomSuffix() {
  std::random_device rd;
  char text[17];
  std::snprintf(text, sizeof text, "%08x%08x", rd(), rd());
  return text;
}

// Makes what was written durable: the file's data, then the folder entry that names it.
bool syncPath(const fs::path& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = ::fsync(fd) == 0;
  ::close(fd);
  return ok;
}

}  // namespace

std::optional<MovieCodec> movieCodecFor(const fs::path& path, std::optional<MovieCodec> hint) {
  const std::string ext = lowerExtension(path);
  if (ext == ".mp4") return MovieCodec::h264;  // ProRes has no place in MP4
  if (ext == ".mov") return hint.value_or(MovieCodec::prores4444);
  return std::nullopt;
}

std::optional<MovieCodec> movieCodecNamed(std::string_view name) {
  if (name == "prores4444") return MovieCodec::prores4444;
  if (name == "prores422hq") return MovieCodec::prores422hq;
  if (name == "h264") return MovieCodec::h264;
  return std::nullopt;
}

struct MovieWriter::Impl {
  fs::path path, temp;
  MovieSpec spec;
  AVFormatContext* format = nullptr;
  AVCodecContext* codec = nullptr;
  AVStream* stream = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  SwsContext* sws = nullptr;
  AVFrame* source = nullptr;  // the frame as 16-bit RGBA, what the converter reads
  std::atomic<int> count = 0;
  bool headerWritten = false;

  // Frames are encoded on a thread of their own while the next one is being made: a render
  // costs the longer of the two, not their sum. At most two frames wait.
  std::thread worker;
  std::mutex lock;
  std::condition_variable changed;
  std::deque<std::vector<float>> waiting;
  bool busy = false, stopping = false;
  std::optional<std::string> failure;  // the first frame that couldn't be encoded
  int accepted = 0;                     // frames handed over, encoded or waiting

  ~Impl() { release(); }

  void run() {
    for (;;) {
      std::vector<float> next;
      {
        std::unique_lock g(lock);
        changed.wait(g, [&] { return stopping || !waiting.empty(); });
        if (waiting.empty()) return;
        next = std::move(waiting.front());
        waiting.pop_front();
        busy = true;
      }
      const bool failed = [&] {
        std::lock_guard g(lock);
        return bool(failure);
      }();
      std::optional<std::string> why = failed ? std::nullopt : encode(next.data());
      {
        std::lock_guard g(lock);
        busy = false;
        if (why && !failure) failure = why;
      }
      changed.notify_all();
    }
  }

  // Hands a frame to the encoder; the reason an earlier frame failed, if one did.
  std::optional<std::string> push(const float* rgba) {
    std::unique_lock g(lock);
    changed.wait(g, [&] { return failure || waiting.size() + (busy ? 1 : 0) < 2; });
    if (failure) return failure;
    waiting.emplace_back(rgba, rgba + std::size_t(spec.width) * spec.height * 4);
    ++accepted;
    g.unlock();
    changed.notify_all();
    return std::nullopt;
  }

  // Ends the encoder thread: after the waiting frames when `drain`, else at once.
  void stopWorker(bool drain) {
    {
      std::lock_guard g(lock);
      stopping = true;
      if (!drain) waiting.clear();
    }
    changed.notify_all();
    if (worker.joinable()) worker.join();
  }

  void release() {
    stopWorker(false);
    if (sws) sws_freeContext(sws), sws = nullptr;
    if (frame) av_frame_free(&frame);
    if (source) av_frame_free(&source);
    if (packet) av_packet_free(&packet);
    if (codec) avcodec_free_context(&codec);
    if (format) {
      if (format->pb) avio_closep(&format->pb);
      avformat_free_context(format);
      format = nullptr;
    }
  }

  void discard() {
    release();
    std::error_code ec;
    if (!temp.empty()) fs::remove(temp, ec);
    temp.clear();
  }

  // Sets everything up and writes the header; the reason when something fails.
  std::optional<std::string> start() {
    const fs::path dir = path.parent_path().empty() ? fs::path(".") : path.parent_path();
    if (spec.width < 1 || spec.height < 1)
      return "taille invalide (" + std::to_string(spec.width) + " × " + std::to_string(spec.height) + ")";
    if (!fs::is_directory(dir)) return "le dossier n'existe pas : " + dir.string();
    const bool h264 = spec.codec == MovieCodec::h264;
    if (h264 && (spec.width % 2 || spec.height % 2))
      return "le H.264 demande une largeur et une hauteur paires (" + std::to_string(spec.width) + " × " +
             std::to_string(spec.height) + ")";

    const char* encoderName = h264 ? "libx264" : "prores_ks";
    const AVCodec* encoder = avcodec_find_encoder_by_name(encoderName);
    if (!encoder) return std::string("l'encodeur ") + encoderName + " manque à FFmpeg";
    const char* container = lowerExtension(path) == ".mp4" ? "mp4" : "mov";
    std::string hidden(".");  // appended piece by piece: GCC 12 warns falsely on "." + string
    hidden += path.filename().string();
    hidden += ".part-" + randomSuffix();
    temp = dir / hidden;
    if (avformat_alloc_output_context2(&format, nullptr, container, temp.c_str()) < 0 || !format)
      return std::string("conteneur ") + container + " indisponible";

    codec = avcodec_alloc_context3(encoder);
    const AVRational rate = frameRateOf(spec.fps, spec.exactTimeScale);
    codec->width = spec.width;
    codec->height = spec.height;
    codec->framerate = rate;
    codec->time_base = {rate.den, rate.num};  // one tick a frame
    codec->sample_aspect_ratio = {1, 1};
    codec->pix_fmt = h264 ? AV_PIX_FMT_YUV420P
                     : spec.codec == MovieCodec::prores4444 ? AV_PIX_FMT_YUVA444P10LE
                                                            : AV_PIX_FMT_YUV422P10LE;
    codec->color_primaries = AVCOL_PRI_BT709;
    codec->color_trc = AVCOL_TRC_BT709;
    codec->colorspace = AVCOL_SPC_BT709;
    codec->color_range = AVCOL_RANGE_MPEG;
    codec->thread_count = 0;  // as many as the machine has
    if (format->oformat->flags & AVFMT_GLOBALHEADER) codec->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    AVDictionary* options = nullptr;
    if (h264) {
      av_dict_set_int(&options, "crf", std::clamp(spec.crf, 0, 51), 0);
      // x264's own default: a render is a delivery, so the smaller file at the same quality is
      // worth the time, and the encode stays well behind the graph's evaluation.
      av_dict_set(&options, "preset", "medium", 0);
    } else {
      av_dict_set_int(&options, "profile", spec.codec == MovieCodec::prores4444 ? 4 : 3, 0);
    }
    const int opened = avcodec_open2(codec, encoder, &options);
    av_dict_free(&options);
    if (opened < 0) return std::string("l'encodeur ") + encoderName + " refuse ces réglages (" + causeOf(opened, dir) + ")";

    stream = avformat_new_stream(format, nullptr);
    if (!stream || avcodec_parameters_from_context(stream->codecpar, codec) < 0) return "mémoire insuffisante";
    stream->time_base = codec->time_base;
    stream->avg_frame_rate = rate;
    if (const int r = avio_open(&format->pb, temp.c_str(), AVIO_FLAG_WRITE); r < 0) return causeOf(r, dir);
    if (const int r = avformat_write_header(format, nullptr); r < 0) return causeOf(r, dir);
    headerWritten = true;

    frame = av_frame_alloc();
    source = av_frame_alloc();
    packet = av_packet_alloc();
    if (!frame || !source || !packet) return "mémoire insuffisante";
    frame->format = codec->pix_fmt;
    source->format = AV_PIX_FMT_RGBA64;
    for (AVFrame* f : {frame, source}) {
      f->width = spec.width;
      f->height = spec.height;
      if (av_frame_get_buffer(f, 0) < 0) return "mémoire insuffisante";
    }
    // Display-referred RGB, full range in, BT.709 video range out; on every core, since the
    // conversion runs between the encoder's frames.
    sws = sws_alloc_context();
    if (!sws) return "mémoire insuffisante";
    av_opt_set_int(sws, "srcw", spec.width, 0);
    av_opt_set_int(sws, "srch", spec.height, 0);
    av_opt_set_int(sws, "src_format", AV_PIX_FMT_RGBA64, 0);
    av_opt_set_int(sws, "dstw", spec.width, 0);
    av_opt_set_int(sws, "dsth", spec.height, 0);
    av_opt_set_int(sws, "dst_format", codec->pix_fmt, 0);
    av_opt_set_int(sws, "sws_flags", SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INP, 0);
    av_opt_set_int(sws, "threads", 0, 0);
    if (sws_init_context(sws, nullptr, nullptr) < 0) return "conversion de couleurs indisponible";
    const int* bt709 = sws_getCoefficients(SWS_CS_ITU709);
    sws_setColorspaceDetails(sws, bt709, 1, bt709, 0, 0, 1 << 16, 1 << 16);
    return std::nullopt;
  }

  // Takes what the encoder has ready (everything, once it is drained) into the file.
  std::optional<std::string> writePackets() {
    for (;;) {
      const int r = avcodec_receive_packet(codec, packet);
      if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return std::nullopt;
      if (r < 0) return "encodage impossible (" + causeOf(r, path.parent_path()) + ")";
      packet->stream_index = stream->index;
      if (packet->duration <= 0) packet->duration = 1;  // one frame, in the codec's ticks
      av_packet_rescale_ts(packet, codec->time_base, stream->time_base);
      const int w = av_interleaved_write_frame(format, packet);  // takes the packet's data
      if (w < 0) return causeOf(w, path.parent_path());
      if (format->pb->error < 0) return causeOf(format->pb->error, path.parent_path());
    }
  }

  std::optional<std::string> encode(const float* rgba) {
    const std::size_t rowLength = std::size_t(spec.width) * 4;
    for (int y = 0; y < spec.height; ++y) {
      const float* in = rgba + y * rowLength;
      auto* out = reinterpret_cast<std::uint16_t*>(source->data[0] + std::ptrdiff_t(y) * source->linesize[0]);
      for (std::size_t i = 0; i < rowLength; ++i) {
        const float v = in[i];
        out[i] = v > 0 ? v < 1 ? std::uint16_t(v * 65535.0f + 0.5f) : 65535 : 0;  // NaN to 0 too
      }
    }
    // The encoder may still hold the last frame (frame threads): a fresh buffer then.
    if (av_frame_make_writable(frame) < 0) return "mémoire insuffisante";
    if (sws_scale_frame(sws, frame, source) < 0) return "conversion de couleurs impossible";
    frame->pts = count;
    frame->color_primaries = codec->color_primaries;
    frame->color_trc = codec->color_trc;
    frame->colorspace = codec->colorspace;
    frame->color_range = codec->color_range;
    if (const int r = avcodec_send_frame(codec, frame); r < 0)
      return "encodage impossible (" + causeOf(r, path.parent_path()) + ")";
    if (auto why = writePackets()) return why;
    ++count;
    return std::nullopt;
  }

  std::optional<std::string> close() {
    if (const int r = avcodec_send_frame(codec, nullptr); r < 0)
      return "encodage impossible (" + causeOf(r, path.parent_path()) + ")";
    if (auto why = writePackets()) return why;
    if (const int r = av_write_trailer(format); r < 0) return causeOf(r, path.parent_path());
    if (format->pb->error < 0) return causeOf(format->pb->error, path.parent_path());
    if (const int r = avio_closep(&format->pb); r < 0) return causeOf(r, path.parent_path());
    if (!syncPath(temp, O_RDONLY)) return causeOf(AVERROR(errno), path.parent_path());
    std::error_code ec;
    fs::rename(temp, path, ec);
    if (ec) return "renommage impossible : " + ec.message();
    temp.clear();
    syncPath(path.parent_path().empty() ? fs::path(".") : path.parent_path(), O_RDONLY | O_DIRECTORY);
    return std::nullopt;
  }
};

MovieWriter::MovieWriter(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {
  impl_->worker = std::thread([d = impl_.get()] { d->run(); });
}
MovieWriter::~MovieWriter() { cancel(); }
int MovieWriter::frames() const { return impl_->accepted; }
void MovieWriter::cancel() { impl_->discard(); }

std::unique_ptr<MovieWriter> MovieWriter::open(const fs::path& path, const MovieSpec& spec, std::string* error) {
  quietFFmpegLog();
  auto d = std::make_unique<Impl>();
  d->path = path;
  d->spec = spec;
  if (auto why = d->start()) {
    d->discard();
    if (error) *error = "Impossible de créer le film : " + *why;
    return nullptr;
  }
  return std::unique_ptr<MovieWriter>(new MovieWriter(std::move(d)));
}

bool MovieWriter::append(const float* rgba, std::string* error) {
  Impl& d = *impl_;
  std::optional<std::string> why = !d.headerWritten || d.temp.empty() ? "le film est déjà fermé" : d.push(rgba);
  if (!why) return true;
  d.discard();
  if (error) *error = "Impossible d'écrire le film : " + *why;
  return false;
}

bool MovieWriter::finish(std::string* error) {
  Impl& d = *impl_;
  std::optional<std::string> why;
  if (!d.headerWritten || d.temp.empty()) {
    why = "le film est déjà fermé";
  } else {
    d.stopWorker(true);
    why = d.failure ? d.failure : d.close();
  }
  d.discard();  // the temporary, if the rename didn't take it
  if (!why) return true;
  if (error) *error = "Impossible d'écrire le film : " + *why;
  return false;
}

std::optional<std::string> writeMatteMovie(const fs::path& dir, int frames, double fps, int width, int height,
                                           const fs::path& to) {
  auto fileOf = [&](int i) {
    char name[32];
    std::snprintf(name, sizeof name, "%05d.png", i);
    return dir / name;
  };
  std::error_code ec;
  int found = 0;
  for (int i = 0; i < frames; ++i) found += fs::is_regular_file(fileOf(i), ec);
  if (found == 0) return "aucune matte calculée";

  std::string error;
  auto writer = MovieWriter::open(to, {MovieCodec::prores422hq, width, height, fps, 18}, &error);
  if (!writer) return error;
  const std::size_t pixels = std::size_t(width) * height;
  std::vector<float> held(pixels * 4, 0.0f);  // black until the first matte
  for (int c = 3; c < int(held.size()); c += 4) held[c] = 1.0f;
  std::vector<std::uint16_t> in, out(pixels * 4);
  SwsContext* sws = nullptr;
  for (int i = 0; i < frames; ++i) {
    const fs::path file = fileOf(i);
    if (fs::is_regular_file(file, ec)) {
      auto picture = SourcePicture::load(file, &error);
      if (!picture) {
        sws_freeContext(sws);
        return "Matte illisible : " + file.filename().string();
      }
      // Mattes are stretched to the movie's size, as they are onto the comp.
      in.resize(picture->rgba->size());
      std::transform(picture->rgba->begin(), picture->rgba->end(), in.begin(), [](std::uint16_t h) {
        return std::uint16_t(std::lround(std::clamp(halfToFloat(h), 0.0f, 1.0f) * 65535.0f));
      });
      sws = sws_getCachedContext(sws, picture->width, picture->height, AV_PIX_FMT_RGBA64, width, height,
                                 AV_PIX_FMT_RGBA64, SWS_BICUBIC, nullptr, nullptr, nullptr);
      if (!sws) return "Matte illisible : " + file.filename().string();
      const std::uint8_t* src[4] = {reinterpret_cast<const std::uint8_t*>(in.data()), nullptr, nullptr, nullptr};
      std::uint8_t* dst[4] = {reinterpret_cast<std::uint8_t*>(out.data()), nullptr, nullptr, nullptr};
      const int srcStride[4] = {picture->width * 8, 0, 0, 0}, dstStride[4] = {width * 8, 0, 0, 0};
      sws_scale(sws, src, srcStride, 0, picture->height, dst, dstStride);
      std::transform(out.begin(), out.end(), held.begin(), [](std::uint16_t v) { return v / 65535.0f; });
    }
    if (!writer->append(held.data(), &error)) {
      sws_freeContext(sws);
      return error;
    }
  }
  sws_freeContext(sws);
  if (!writer->finish(&error)) return error;
  return std::nullopt;
}

}  // namespace ombrik
