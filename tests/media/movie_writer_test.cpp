// Movies written through the FFmpeg libraries, checked with the ffprobe and ffmpeg programs:
// stream description, timing, colour tags, and every frame's values decoded back.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "../platform/temp_dir.h"
#include "media/movie_writer.h"
#include "test_clips.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

constexpr int kW = 64, kH = 36, kFrames = 12;
constexpr float kPatch[3] = {0.8f, 0.3f, 0.2f};  // top-left 16x16: orientation and matrix
double levelOf(int frame) { return 0.1 + 0.06 * frame; }

std::string output(const std::string& cmd) {
  std::string out;
  if (FILE* pipe = popen(cmd.c_str(), "r")) {
    char buf[65536];
    for (std::size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
    pclose(pipe);
  }
  return out;
}

nlohmann::json probe(const fs::path& file) {
  const auto j = nlohmann::json::parse(
      output("ffprobe -v error -show_streams -count_frames -of json '" + file.string() + "'"), nullptr, false);
  return j.is_object() && j.contains("streams") && j["streams"].size() == 1 ? j["streams"][0] : nlohmann::json();
}

// Every frame as the ffmpeg program decodes it: rgba 0..1, row 0 on top.
std::vector<std::vector<float>> decode(const fs::path& file, int w, int h) {
  const std::string raw =
      output("ffmpeg -v error -i '" + file.string() + "' -f rawvideo -pix_fmt rgba64le -");
  const std::size_t size = std::size_t(w) * h * 4;
  std::vector<std::vector<float>> frames(raw.size() / (size * 2), std::vector<float>(size));
  for (std::size_t f = 0; f < frames.size(); ++f)
    for (std::size_t i = 0; i < size; ++i) {
      const auto* p = reinterpret_cast<const unsigned char*>(raw.data()) + (f * size + i) * 2;
      frames[f][i] = (p[0] | p[1] << 8) / 65535.0f;
    }
  return frames;
}

// Frame k: grey levelOf(k), a colour patch top left, and with `alpha` a half-transparent block
// bottom right.
std::vector<float> paint(int k, bool alpha) {
  std::vector<float> px(std::size_t(kW) * kH * 4);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      float* p = &px[(std::size_t(y) * kW + x) * 4];
      const bool patch = x < 16 && y < 16;
      for (int c = 0; c < 3; ++c) p[c] = patch ? kPatch[c] : float(levelOf(k));
      p[3] = alpha && x >= kW - 8 && y >= kH - 8 ? 0.5f : 1.0f;
    }
  return px;
}

// The mean grey of the plain area (outside the patch and the alpha block).
double meanGrey(const std::vector<float>& px) {
  double sum = 0;
  int n = 0;
  for (int y = 0; y < kH - 8; ++y)
    for (int x = 16; x < kW - 8; ++x, ++n) sum += px[(std::size_t(y) * kW + x) * 4 + 1];
  return sum / n;
}

std::vector<std::string> entries(const fs::path& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
  return names;
}

}  // namespace

TEST(MovieWriter, WritesEachCodecFrameExactWithItsTagsAndTiming) {
  struct Case {
    const char* file;
    MovieCodec codec;
    double fps;
    const char* codecName;
    const char* profile;
    const char* pixFmt;  // as FFmpeg's decoder reports it: 4444 written from 10 bits reads as 12
    const char* rate;
    const char* timeBase;
    int tickPerFrame;
    double tolerance;  // a 10-bit step for ProRes, a few 8-bit levels for H.264
  } cases[] = {
      {"comp.mov", MovieCodec::prores4444, 25, "prores", "4444", "yuva444p12le", "25/1", "1/25000", 1000, 1.0 / 876},
      {"comp.mov", MovieCodec::prores422hq, 23.976, "prores", "HQ", "yuv422p10le", "24000/1001", "1/24000", 1001, 1.0 / 876},
      {"comp.mov", MovieCodec::prores422hq, 12.5, "prores", "HQ", "yuv422p10le", "25/2", "1/12500", 1000, 1.0 / 876},
      {"comp.mp4", MovieCodec::h264, 29.97, "h264", "High", "yuv420p", "30000/1001", "1/30000", 1001, 3.0 / 255},
      {"comp.mov", MovieCodec::h264, 25, "h264", "High", "yuv420p", "25/1", "1/25000", 1000, 3.0 / 255},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.codecName) + " " + c.profile + " at " + std::to_string(c.fps) + " in " + c.file);
    TempDir dir;
    const fs::path file = dir.path / c.file;
    const bool alpha = c.codec == MovieCodec::prores4444;
    std::string error;
    auto writer = MovieWriter::open(file, {c.codec, kW, kH, c.fps, 18}, &error);
    ASSERT_TRUE(writer) << error;
    for (int k = 0; k < kFrames; ++k) ASSERT_TRUE(writer->append(paint(k, alpha).data(), &error)) << error;
    EXPECT_EQ(writer->frames(), kFrames);
    EXPECT_FALSE(fs::exists(file)) << "nothing under the final name before finish";
    ASSERT_TRUE(writer->finish(&error)) << error;
    EXPECT_EQ(entries(dir.path), std::vector<std::string>{c.file}) << "the temporary is gone";

    const auto s = probe(file);
    ASSERT_TRUE(s.is_object());
    // The last frame has its duration too: the movie lasts all twelve frames.
    const nlohmann::json want = {{"codec_name", c.codecName}, {"profile", c.profile}, {"pix_fmt", c.pixFmt}, {"width", kW},
                                 {"height", kH}, {"nb_read_frames", std::to_string(kFrames)}, {"r_frame_rate", c.rate},
                                 {"time_base", c.timeBase}, {"duration_ts", kFrames * c.tickPerFrame},
                                 {"color_primaries", "bt709"}, {"color_transfer", "bt709"}, {"color_space", "bt709"},
                                 {"color_range", "tv"}};
    for (const auto& [key, value] : want.items()) EXPECT_EQ(s.value(key, nlohmann::json()), value) << key;

    const auto frames = decode(file, kW, kH);
    ASSERT_EQ(int(frames.size()), kFrames);
    for (int k = 0; k < kFrames; ++k) {
      const auto& px = frames[k];
      EXPECT_NEAR(meanGrey(px), levelOf(k), c.tolerance) << "frame " << k;
      const float* patch = &px[(8 * kW + 8) * 4];
      for (int ch = 0; ch < 3; ++ch) EXPECT_NEAR(patch[ch], kPatch[ch], 0.02) << "patch channel " << ch << ", frame " << k;
      const float a = px[(std::size_t(kH - 4) * kW + kW - 4) * 4 + 3], opaque = px[(20 * kW + 30) * 4 + 3];
      EXPECT_NEAR(a, alpha ? 0.5 : 1.0, 1.0 / 1023) << "frame " << k;
      EXPECT_NEAR(opaque, 1.0, 1.0 / 1023) << "frame " << k;
    }
  }
}

TEST(MovieWriter, AnUnfinishedOrRefusedMovieLeavesNoFileAndCodecsFollowNames) {
  TempDir dir;
  std::string error;
  {
    auto writer = MovieWriter::open(dir.path / "dropped.mov", {MovieCodec::prores4444, kW, kH, 25, 18}, &error);
    ASSERT_TRUE(writer) << error;
    for (int k = 0; k < 3; ++k) ASSERT_TRUE(writer->append(paint(k, true).data(), &error));
    EXPECT_EQ(entries(dir.path).size(), 1u) << "the hidden temporary while it is written";
  }
  EXPECT_TRUE(entries(dir.path).empty()) << "destroyed unfinished: neither the movie nor its temporary";

  auto cancelled = MovieWriter::open(dir.path / "cancelled.mp4", {MovieCodec::h264, kW, kH, 25, 18}, &error);
  ASSERT_TRUE(cancelled);
  ASSERT_TRUE(cancelled->append(paint(0, false).data(), &error));
  cancelled->cancel();
  EXPECT_FALSE(cancelled->finish(&error));
  EXPECT_FALSE(cancelled->append(paint(1, false).data(), &error));
  EXPECT_TRUE(entries(dir.path).empty());

  // A folder the process may not write to; root writes anywhere it can chmod, but not in /sys.
  const fs::path locked = dir.path / "locked";
  fs::create_directory(locked);
  chmod(locked.c_str(), 0555);
  const fs::path unwritable = access(locked.c_str(), W_OK) == 0 ? fs::path("/sys") : locked;
  struct Refusal {
    fs::path file;
    MovieSpec spec;
    const char* cause;
  } refusals[] = {
      {dir.path / "missing" / "a.mov", {MovieCodec::prores4444, kW, kH, 25, 18}, "n'existe pas"},
      {unwritable / "a.mov", {MovieCodec::prores422hq, kW, kH, 25, 18}, "accès refusé"},
      {dir.path / "odd.mp4", {MovieCodec::h264, 65, 36, 25, 18}, "paires (65 × 36)"},
      {dir.path / "empty.mov", {MovieCodec::prores4444, 0, 36, 25, 18}, "taille invalide"},
  };
  for (const Refusal& r : refusals) {
    error.clear();
    EXPECT_FALSE(MovieWriter::open(r.file, r.spec, &error)) << r.file;
    EXPECT_EQ(error.rfind("Impossible de créer le film : ", 0), 0u) << error;
    EXPECT_NE(error.find(r.cause), std::string::npos) << error;
  }
  chmod(locked.c_str(), 0755);
  EXPECT_TRUE(entries(locked).empty());
  EXPECT_EQ(entries(dir.path), std::vector<std::string>{"locked"});

  // Codecs follow the file name, the hint where the name allows it, and their own names.
  using C = MovieCodec;
  const struct {
    const char* file;
    std::optional<C> hint, want;
  } byName[] = {
      {"a.mp4", std::nullopt, C::h264},  {"a.MP4", C::prores422hq, C::h264}, {"a.mov", std::nullopt, C::prores4444},
      {"a.MOV", C::prores422hq, C::prores422hq}, {"a.mov", C::h264, C::h264}, {"a.tif", C::h264, std::nullopt},
      {"mov", std::nullopt, std::nullopt},
  };
  for (const auto& c : byName) EXPECT_EQ(movieCodecFor(c.file, c.hint), c.want) << c.file;
  const std::pair<const char*, std::optional<C>> byCodecName[] = {
      {"prores4444", C::prores4444}, {"prores422hq", C::prores422hq}, {"h264", C::h264}, {"H264", std::nullopt}};
  for (const auto& [name, want] : byCodecName) EXPECT_EQ(movieCodecNamed(name), want) << name;
}

TEST(MovieWriter, MatteFramesBecomeAProRes422Movie) {
  TempDir dir;
  const fs::path mattes = dir.path / "mattes";
  fs::create_directory(mattes);
  EXPECT_EQ(writeMatteMovie(mattes, 5, 25, 2 * kW, 2 * kH, dir.path / "none.mov"), "aucune matte calculée");
  EXPECT_FALSE(fs::exists(dir.path / "none.mov"));

  // Five grey PNGs, 00000.png to 00004.png, levels 16 + 6 i; the movie is twice their size.
  ASSERT_FALSE(test::writeClip(mattes / "%05d.png", "-start_number 0", false, 5).empty());
  const fs::path movie = dir.path / "matte.mov";
  EXPECT_EQ(writeMatteMovie(mattes, 5, 25, 2 * kW, 2 * kH, movie), std::nullopt);
  const auto s = probe(movie);
  EXPECT_EQ(s.value("profile", ""), "HQ");
  EXPECT_EQ(s.value("width", 0), 2 * kW);
  auto frames = decode(movie, 2 * kW, 2 * kH);
  ASSERT_EQ(frames.size(), 5u);
  for (int k = 0; k < 5; ++k) EXPECT_NEAR(frames[k][1000 * 4 + 1] * 255, test::clipLevel(k), 0.5) << k;

  // A frame with no matte of its own holds the one before, so the movie keeps its clip's timing.
  fs::remove(mattes / "00002.png");
  EXPECT_EQ(writeMatteMovie(mattes, 6, 25, kW, kH, movie), std::nullopt);
  frames = decode(movie, kW, kH);
  ASSERT_EQ(frames.size(), 6u);
  const int shown[] = {0, 1, 1, 3, 4, 4};
  for (int k = 0; k < 6; ++k) EXPECT_NEAR(frames[k][100 * 4] * 255, test::clipLevel(shown[k]), 0.5) << k;
}
