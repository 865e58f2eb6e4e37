// Guessing the log curve of a clip: camera words, the log look of sampled frames, and both on
// clips the test writes with the ffmpeg program.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>

#include "../platform/temp_dir.h"
#include "color/lut_lib.h"

using namespace ombrik;

namespace {

Picture picture(const std::vector<std::array<std::uint8_t, 3>>& pixels) {
  auto bytes = std::make_shared<std::vector<std::uint8_t>>();
  for (const auto& p : pixels) bytes->insert(bytes->end(), {p[0], p[1], p[2], 255});
  return Picture{int(pixels.size()), 1, bytes};
}

std::vector<std::array<std::uint8_t, 3>> greys(std::size_t count, std::uint8_t level) {
  return std::vector<std::array<std::uint8_t, 3>>(count, {level, level, level});
}

// A 64x36 grey clip at 25 fps, each frame a left-to-right ramp between the levels `ramp(i)` gives.
std::filesystem::path writeRampClip(const std::filesystem::path& path, int frames,
                                    const std::function<std::pair<int, int>(int)>& ramp, const std::string& metadata = "") {
  const int w = 64, h = 36;
  const std::string cmd = "ffmpeg -v error -y -f rawvideo -pix_fmt gray -s 64x36 -r 25 -i - " + metadata +
                          " -c:v ffv1 '" + path.string() + "'";
  FILE* pipe = popen(cmd.c_str(), "w");
  if (!pipe) return {};
  std::vector<std::uint8_t> frame(w * h);
  for (int i = 0; i < frames; ++i) {
    const auto [lo, hi] = ramp(i);
    for (int p = 0; p < w * h; ++p) frame[p] = std::uint8_t(lo + (hi - lo) * (p % w) / (w - 1));
    fwrite(frame.data(), 1, frame.size(), pipe);
  }
  return pclose(pipe) == 0 ? path : std::filesystem::path();
}

constexpr std::pair<int, int> kLog{40, 180};     // lifted blacks, low contrast
constexpr std::pair<int, int> kDisplay{0, 255};  // full range

}  // namespace

TEST(LutDetect, FirstWordGroupFoundDecides) {
  const struct {
    const char* text;
    std::optional<std::string> key;
  } cases[] = {
      {"a001c003_alexa35_0714.mov", "auto:logc4"},  // before "alexa" of the LogC3 group
      {"arri alexa mini lf", "auto:logc3"},
      {"iphone 15 pro applelog", "auto:applelog"},
      {"sony ilme-fx30 canon lens", "auto:slog3"},  // Sony's group comes before Canon's
      {"make canon\nmodel eos c70", "auto:clog3"},
      {"lumix gh6", "auto:vlog"},
      {"komodo_a001.r3d", "auto:log3g10"},
      {"bmpcc6k", "auto:bmdfilm"},
      {"holiday.mov\nencoder lavf", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(LUTLib::keyForText(c.text), c.key) << c.text;
}

TEST(LutDetect, FrameStatisticsAtTheirPercentiles) {
  const struct {
    const char* name;
    std::vector<std::array<std::uint8_t, 3>> pixels;
    bool logLike;
  } cases[] = {
      // 100 pixels: p1 is the second darkest.
      {"one black pixel of 100", [] { auto v = greys(100, 77); v[0] = {0, 0, 0}; return v; }(), true},
      {"two black pixels of 100", [] { auto v = greys(100, 77); v[5] = v[50] = {0, 0, 0}; return v; }(), false},
      // 200 pixels: p99 is the second brightest.
      {"one white pixel of 200", [] { auto v = greys(200, 51); v[3] = {255, 255, 255}; return v; }(), true},
      {"two white pixels of 200", [] { auto v = greys(200, 51); v[3] = v[9] = {255, 255, 255}; return v; }(), false},
      {"blacks at 0.047", greys(50, 12), true},
      {"blacks at 0.043", greys(50, 11), false},
      {"chroma 0.15", std::vector<std::array<std::uint8_t, 3>>(30, {115, 77, 77}), true},
      {"chroma 0.30", std::vector<std::array<std::uint8_t, 3>>(30, {153, 77, 77}), false},
  };
  for (const auto& c : cases) {
    const auto s = LUTLib::frameStats(picture(c.pixels));
    ASSERT_TRUE(s) << c.name;
    EXPECT_EQ(s->logLike(), c.logLike) << c.name << ": p1 " << s->p1 << " p99 " << s->p99 << " chroma " << s->chroma;
  }
  const auto s = LUTLib::frameStats(picture(std::vector<std::array<std::uint8_t, 3>>(10, {200, 100, 50})));
  ASSERT_TRUE(s);
  EXPECT_NEAR(s->p1, (0.2126 * 200 + 0.7152 * 100 + 0.0722 * 50) / 255, 1e-9);
  EXPECT_NEAR(s->chroma, 150 / 255.0, 1e-9);
  EXPECT_FALSE(LUTLib::frameStats(Picture{}));
}

TEST(LutDetect, ClipsNeedACameraNameAndALogLook) {
  TempDir dir;
  const auto all = [](std::pair<int, int> look) { return [look](int) { return look; }; };
  const auto between = [](int from, int to) { return [from, to](int i) { return i >= from && i < to ? kLog : kDisplay; }; };
  const auto until = [&](int frame) { return between(0, frame); };
  const struct {
    const char* name;
    int frames;
    std::function<std::pair<int, int>(int)> ramp;
    std::string metadata;
    std::optional<std::string> key;
  } cases[] = {
      {"A001_C002_alexa_mini.mkv", 50, all(kLog), "", "auto:logc3"},
      {"day1.mkv", 50, all(kLog), "-metadata title='Sony ILME-FX3'", "auto:slog3"},
      {"fx3_holiday.mkv", 50, all(kDisplay), "", std::nullopt},  // a camera, but not shot in log
      {"graded_log.mkv", 50, all(kLog), "", std::nullopt},       // log, but no camera named
      // 0.4 s: judged on its first frame alone.
      {"short_komodo.mkv", 10, until(1), "", "auto:log3g10"},
      // 2 s: frames 10, 25 and 40, at least half of them log-like.
      {"long_komodo.mkv", 50, until(1), "", std::nullopt},
      {"two_of_three_komodo.mkv", 50, until(30), "", "auto:log3g10"},
      {"one_of_three_komodo.mkv", 50, until(20), "", std::nullopt},
      {"late_start_komodo.mkv", 50, between(1, 30), "", "auto:log3g10"},
  };
  for (const auto& c : cases) {
    const auto path = writeRampClip(dir.path / c.name, c.frames, c.ramp, c.metadata);
    ASSERT_FALSE(path.empty()) << c.name;
    EXPECT_EQ(LUTLib::detect(path), c.key) << c.name;
  }
  EXPECT_FALSE(LUTLib::detect(dir.path / "sony_missing.mov"));
  EXPECT_FALSE(LUTLib::looksLog(dir.path / "sony_missing.mov"));
}
