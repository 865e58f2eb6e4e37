// Guessing a clip's log curve: the camera it names (file name, container and stream metadata,
// the video codec's tags) decides the curve, but only for pictures that look like log: a camera
// name alone says nothing of how the clip was shot.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cctype>
#include <cmath>

#include "color/lut_lib.h"
#include "color/lut_tables.h"
#include "engine/half_float.h"
#include "media/ffmpeg_log.h"
#include "media/frame_reader.h"

namespace ombrik {

namespace {

void appendDictionary(std::string& text, const AVDictionary* dictionary) {
  const AVDictionaryEntry* e = nullptr;
  while ((e = av_dict_get(dictionary, "", e, AV_DICT_IGNORE_SUFFIX))) {
    text += '\n';
    text += e->key;
    text += ' ';
    text += e->value;
  }
}

// What the clip says of itself: the container's and every stream's metadata, then the first video
// track's codec tag, profile and colour tags (what other systems keep as the format description).
std::string metadataText(const std::filesystem::path& url) {
  quietFFmpegLog();
  AVFormatContext* format = nullptr;
  if (avformat_open_input(&format, url.c_str(), nullptr, nullptr) < 0) return {};
  std::string text;
  if (avformat_find_stream_info(format, nullptr) >= 0) {
    appendDictionary(text, format->metadata);
    for (unsigned i = 0; i < format->nb_streams; ++i) appendDictionary(text, format->streams[i]->metadata);
    const int video = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (video >= 0) {
      const AVCodecParameters* p = format->streams[video]->codecpar;
      char tag[AV_FOURCC_MAX_STRING_SIZE] = {};
      text += '\n';
      text += av_fourcc_make_string(tag, p->codec_tag);
      for (const char* name : {avcodec_get_name(p->codec_id), avcodec_profile_name(p->codec_id, p->profile),
                               av_color_transfer_name(p->color_trc), av_color_primaries_name(p->color_primaries),
                               av_color_space_name(p->color_space)})
        if (name) text += std::string("\n") + name;
    }
  }
  avformat_close_input(&format);
  return text;
}

std::string lowered(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return s;
}

}  // namespace

std::optional<std::string> LUTLib::keyForText(std::string_view text) {
  for (const auto& group : lut_tables::kDetectGroups)
    for (const char* word : group.words)
      if (word && text.find(word) != std::string_view::npos) return std::string(group.key);
  return std::nullopt;
}

std::optional<std::string> LUTLib::detect(const std::filesystem::path& url) {
  const std::string text = lowered(url.filename().string() + metadataText(url));
  // The words first: a clip that names no camera needs no frames decoded.
  auto key = keyForText(text);
  if (!key || !looksLog(url)) return std::nullopt;
  return key;
}

std::optional<LUTLib::FrameStats> LUTLib::frameStats(const Picture& picture) {
  const std::size_t count = std::size_t(std::max(picture.width, 0)) * std::max(picture.height, 0);
  if (count == 0 || !picture.rgba || picture.rgba->size() < count * 4) return std::nullopt;
  std::vector<double> luma(count);
  double chroma = 0;
  const std::uint8_t* p = picture.rgba->data();
  for (std::size_t i = 0; i < count; ++i, p += 4) {
    const double r = p[0] / 255.0, g = p[1] / 255.0, b = p[2] / 255.0;
    luma[i] = 0.2126 * r + 0.7152 * g + 0.0722 * b;
    chroma += std::max({r, g, b}) - std::min({r, g, b});
  }
  FrameStats s;
  const std::size_t i1 = count / 100, i99 = 99 * count / 100;
  std::nth_element(luma.begin(), luma.begin() + i1, luma.end());
  s.p1 = luma[i1];
  std::nth_element(luma.begin(), luma.begin() + i99, luma.end());
  s.p99 = luma[i99];
  s.chroma = chroma / double(count);
  return s;
}

bool LUTLib::looksLog(const std::filesystem::path& url) {
  auto reader = FrameReader::open(url);
  if (!reader) return false;
  reader->setSizeLimit(160, 160);
  const ClipInfo& info = reader->info();
  std::vector<double> times{0.0};
  if (std::isfinite(info.duration) && info.duration > 0.5)
    times = {0.2 * info.duration, 0.5 * info.duration, 0.8 * info.duration};
  int read = 0, logLike = 0;
  for (double t : times) {
    auto frame = reader->read(int(std::floor(t * info.fps + 1e-6)));
    if (!frame || frame->empty()) continue;
    // The statistics are taken on 8-bit values, as a thumbnail would give them.
    const std::size_t n = std::size_t(frame->width) * frame->height;
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(n * 4);
    for (std::size_t i = 0; i < n * 4; ++i)
      (*bytes)[i] = std::uint8_t(std::lround(std::clamp(halfToFloat((*frame->rgba)[i]), 0.0f, 1.0f) * 255));
    const auto stats = frameStats(Picture{frame->width, frame->height, std::move(bytes)});
    if (!stats) continue;
    ++read;
    logLike += stats->logLike() ? 1 : 0;
  }
  return read > 0 && 2 * logLike >= read;
}

}  // namespace ombrik
