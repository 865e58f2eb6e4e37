#include "media/movie_mux.h"

#include <system_error>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace ombrik {

namespace fs = std::filesystem;

namespace {

struct Input {
  AVFormatContext* format = nullptr;
  ~Input() {
    if (format) avformat_close_input(&format);
  }
  bool open(const fs::path& path) {
    return avformat_open_input(&format, path.c_str(), nullptr, nullptr) >= 0 &&
           avformat_find_stream_info(format, nullptr) >= 0;
  }
  std::vector<int> streamsOf(AVMediaType type) const {
    std::vector<int> out;
    for (unsigned i = 0; i < format->nb_streams; ++i)
      if (format->streams[i]->codecpar->codec_type == type) out.push_back(int(i));
    return out;
  }
};

struct Output {
  AVFormatContext* format = nullptr;
  fs::path temp;
  bool open = false, done = false;
  ~Output() {
    if (format) {
      if (open) avio_closep(&format->pb);
      avformat_free_context(format);
    }
    std::error_code ec;
    if (!done && !temp.empty()) fs::remove(temp, ec);
  }
};

// One input's packets in order, each stream of it copied to an output stream.
struct Feed {
  Input* in;
  std::vector<int> map;  // input stream → output stream, -1 when not copied
  AVPacket* next = av_packet_alloc();
  bool ended = false;
  ~Feed() { av_packet_free(&next); }
  // Reads on to the next packet of a copied stream; false at the end.
  bool advance() {
    while (!ended) {
      av_packet_unref(next);
      if (av_read_frame(in->format, next) < 0) {
        ended = true;
        break;
      }
      if (next->stream_index < int(map.size()) && map[std::size_t(next->stream_index)] >= 0) return true;
    }
    return false;
  }
  double seconds() const {
    const AVStream* s = in->format->streams[next->stream_index];
    const int64_t t = next->dts != AV_NOPTS_VALUE ? next->dts : next->pts;
    return t == AV_NOPTS_VALUE ? 0 : t * av_q2d(s->time_base);
  }
};

}  // namespace

std::optional<std::string> muxAudio(const fs::path& video, const std::optional<fs::path>& audioFrom, const fs::path& to) {
  std::error_code ec;
  fs::remove(to, ec);
  Input audio;
  const bool withSound = audioFrom && fs::is_regular_file(*audioFrom, ec) && audio.open(*audioFrom) &&
                         !audio.streamsOf(AVMEDIA_TYPE_AUDIO).empty();
  if (!withSound) {
    fs::copy_file(video, to, ec);
    return ec ? std::optional<std::string>(ec.message()) : std::nullopt;
  }
  Input picture;
  if (!picture.open(video) || picture.streamsOf(AVMEDIA_TYPE_VIDEO).empty()) return "piste vidéo absente";
  const int videoIndex = picture.streamsOf(AVMEDIA_TYPE_VIDEO).front();
  const AVStream* videoStream = picture.format->streams[videoIndex];
  double videoSeconds = videoStream->duration != AV_NOPTS_VALUE ? videoStream->duration * av_q2d(videoStream->time_base)
                                                                 : picture.format->duration / double(AV_TIME_BASE);

  Output out;
  std::string hidden(".");  // appended piece by piece: GCC 12 warns falsely on "." + string
  hidden += to.filename().string();
  hidden += ".mux-part";
  out.temp = to.parent_path() / hidden;
  if (avformat_alloc_output_context2(&out.format, nullptr, "mov", out.temp.c_str()) < 0 || !out.format)
    return "export du son impossible";
  auto copyStream = [&](const AVStream* from) -> int {
    if (avformat_query_codec(out.format->oformat, from->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 1) return -1;
    AVStream* s = avformat_new_stream(out.format, nullptr);
    if (!s || avcodec_parameters_copy(s->codecpar, from->codecpar) < 0) return -1;
    s->codecpar->codec_tag = 0;  // the container chooses its own tag for the codec
    s->time_base = from->time_base;
    s->avg_frame_rate = from->avg_frame_rate;
    return s->index;
  };
  Feed pictures{&picture, std::vector<int>(picture.format->nb_streams, -1)};
  Feed sounds{&audio, std::vector<int>(audio.format->nb_streams, -1)};
  pictures.map[std::size_t(videoIndex)] = copyStream(videoStream);
  if (pictures.map[std::size_t(videoIndex)] < 0) return "export du son impossible";
  int copied = 0;
  for (int i : audio.streamsOf(AVMEDIA_TYPE_AUDIO))
    if ((sounds.map[std::size_t(i)] = copyStream(audio.format->streams[i])) >= 0) ++copied;
  if (copied == 0) return "export du son impossible : codec audio refusé par le conteneur";
  // The movie keeps the picture's time scale: a timeline's exact rate survives the remux.
  AVDictionary* options = nullptr;
  av_dict_set_int(&options, "video_track_timescale", videoStream->time_base.den, 0);
  if (avio_open(&out.format->pb, out.temp.c_str(), AVIO_FLAG_WRITE) < 0) {
    av_dict_free(&options);
    return "export du son impossible";
  }
  out.open = true;
  const int header = avformat_write_header(out.format, &options);
  av_dict_free(&options);
  if (header < 0) return "export du son impossible";

  // Both inputs in time order; sound past the picture's end is left out.
  pictures.advance();
  sounds.advance();
  while (!pictures.ended || !sounds.ended) {
    const bool takePicture = !pictures.ended && (sounds.ended || pictures.seconds() <= sounds.seconds());
    Feed& f = takePicture ? pictures : sounds;
    if (!takePicture && f.seconds() >= videoSeconds) {
      sounds.ended = true;
      continue;
    }
    const AVStream* from = f.in->format->streams[f.next->stream_index];
    AVStream* into = out.format->streams[f.map[std::size_t(f.next->stream_index)]];
    f.next->stream_index = into->index;
    av_packet_rescale_ts(f.next, from->time_base, into->time_base);
    f.next->pos = -1;
    if (av_interleaved_write_frame(out.format, f.next) < 0) return "export du son impossible";
    f.advance();
  }
  if (av_write_trailer(out.format) < 0) return "export du son impossible";
  avio_closep(&out.format->pb);
  out.open = false;
  fs::rename(out.temp, to, ec);
  if (ec) return ec.message();
  out.done = true;
  return std::nullopt;
}

}  // namespace ombrik
