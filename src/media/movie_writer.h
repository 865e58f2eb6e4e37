#pragma once
// Movies written with the FFmpeg libraries: ProRes 4444 (alpha kept) or 422 HQ in QuickTime,
// H.264 in MP4 or QuickTime. A movie only ever appears under its own name once it is complete.
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ombrik {

enum class MovieCodec { prores4444, prores422hq, h264 };

struct MovieSpec {
  MovieCodec codec = MovieCodec::prores4444;
  int width = 0, height = 0;
  double fps = 25;  // 23.976 / 29.97 / 59.94 (within 0.01) are written as 24000/1001, 30000/1001, 60000/1001
  int crf = 18;     // H.264 only
  // The track's time scale round(fps * 1000) with frame i at i * 1000 even for the NTSC rates: a
  // timeline at 23.976 keeps its own timing rather than becoming 24000/1001.
  bool exactTimeScale = false;
};

// The codec a movie file name asks for: ".mp4" H.264, ".mov" ProRes 4444 unless `hint` says
// otherwise; nothing for other extensions.
std::optional<MovieCodec> movieCodecFor(const std::filesystem::path& path, std::optional<MovieCodec> hint = std::nullopt);
std::optional<MovieCodec> movieCodecNamed(std::string_view name);  // "prores4444", "prores422hq", "h264"

class MovieWriter {
public:
  // Encodes into a hidden temporary file beside `path` (".<name>.part-<random>"): nothing appears
  // under `path` until finish(). Null with the reason in *error. H.264 refuses odd sizes (its
  // 4:2:0 chroma needs even ones) rather than writing a movie of another size than asked.
  static std::unique_ptr<MovieWriter> open(const std::filesystem::path& path, const MovieSpec& spec, std::string* error);
  ~MovieWriter();  // an unfinished movie is cancelled
  MovieWriter(const MovieWriter&) = delete;
  MovieWriter& operator=(const MovieWriter&) = delete;

  // One frame of width*height RGBA floats, row 0 on top, display-referred (sRGB-encoded) values,
  // straight alpha. A failure cancels the movie.
  bool append(const float* rgba, std::string* error);
  // Flushes the encoder, writes the trailer, fsyncs and renames onto `path`. False with a message
  // (disk full included), the temporary removed.
  bool finish(std::string* error);
  void cancel();  // removes the temporary file
  int frames() const;  // frames appended so far (some may still be encoding)

  struct Impl;

private:
  explicit MovieWriter(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// A folder of matte frames "%05d.png" (grey or RGB), numbered from 0, into a ProRes 422 HQ movie
// of `frames` frames at that size. A frame with no file holds the matte before it (black before
// the first), so the movie stays in step with its clip. Nothing on success, else the message
// ("aucune matte calculée" when the folder holds no frame).
std::optional<std::string> writeMatteMovie(const std::filesystem::path& dir, int frames, double fps, int width, int height,
                                           const std::filesystem::path& to);

}  // namespace ombrik
