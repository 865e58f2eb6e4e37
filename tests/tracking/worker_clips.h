#pragma once
// What the worker tests share: a clip of a textured plate sliding by a known amount per frame,
// written by the ffmpeg program, and a worker setup that logs into the test's own folder.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../platform/temp_dir.h"
#include "engine/half_float.h"
#include "engine/source_picture.h"
#include "platform/app_paths.h"
#include "tracking/tap_server.h"

namespace ombrik::test {

struct PlateClip {
  int W = 320, H = 180, frames = 30;
  double dx = 1.5, dy = -0.75;  // pixels per frame
  double noise = 1.5;           // grey levels, standard deviation
};

// A smooth texture in every direction, so that no spot is a mere stripe: sixteen sinusoids of
// wavelengths from 2π/(0.08 + spread) to 2π/0.08 px, drawn from `rng`.
struct PlateWave {
  double kx, ky, phase, amp;
};
inline std::vector<PlateWave> plateWaves(std::mt19937& rng, double spread) {
  std::uniform_real_distribution<double> uni(0, 1);
  std::vector<PlateWave> waves;
  for (int k = 0; k < 16; ++k) {
    const double a = (k + uni(rng)) * M_PI / 16, f = 0.08 + spread * uni(rng);
    waves.push_back({f * std::cos(a), f * std::sin(a), uni(rng) * 2 * M_PI, 6 + 6 * uni(rng)});
  }
  return waves;
}
inline double plateAt(const std::vector<PlateWave>& waves, double x, double y) {
  double v = 128;
  for (const PlateWave& w : waves) v += w.amp * std::sin(w.kx * x + w.ky * y + w.phase);
  return v;
}

// Raw frames of `pixfmt` (gray, rgb24) piped to ffmpeg, which writes `out` with the output options `codec`.
inline bool writeFrames(const std::filesystem::path& out, int w, int h, const char* pixfmt,
                        const std::vector<std::vector<unsigned char>>& frames, const std::string& codec) {
  const std::string cmd = "ffmpeg -v error -y -f rawvideo -pix_fmt " + std::string(pixfmt) + " -s " + std::to_string(w) +
                          "x" + std::to_string(h) + " -r 25 -i - " + codec + " '" + out.string() + "'";
  FILE* pipe = popen(cmd.c_str(), "w");
  if (!pipe) return false;
  for (const auto& f : frames) fwrite(f.data(), 1, f.size(), pipe);
  return pclose(pipe) == 0;
}
inline const std::string kH264 = "-c:v libx264 -crf 12 -pix_fmt yuv420p";

using Picture = std::vector<double>;  // RGB by rows, 0..255
inline bool writePictures(const std::filesystem::path& out, int w, int h, const std::vector<Picture>& frames,
                          const std::string& codec) {
  std::vector<std::vector<unsigned char>> bytes;
  for (const Picture& f : frames) {
    auto& b = bytes.emplace_back();
    for (double v : f) b.push_back(static_cast<unsigned char>(std::clamp(std::lround(v), 0L, 255L)));
  }
  return writeFrames(out, w, h, "rgb24", bytes, codec);
}
// RGB (0..255) of a picture the engine decoded: half floats, four channels.
inline Picture rgbOf(const SourcePicture& p) {
  Picture out(std::size_t(p.width) * p.height * 3);
  for (std::size_t i = 0; i < out.size() / 3; ++i)
    for (int c = 0; c < 3; ++c) out[i * 3 + c] = 255.0 * halfToFloat((*p.rgba)[i * 4 + c]);
  return out;
}

// Frame t shows the texture moved by t·(dx, dy), plus noise, in H.264. A point of the plate at
// (x, y) on frame 0 is at (x + t·dx, y + t·dy) on frame t, in continuous pixel coordinates.
inline bool writePlateClip(const std::filesystem::path& out, const PlateClip& c) {
  std::mt19937 rng(7);
  const std::vector<PlateWave> waves = plateWaves(rng, 0.22);
  std::normal_distribution<double> grain(0, c.noise);
  std::vector<std::vector<unsigned char>> frames(c.frames, std::vector<unsigned char>(std::size_t(c.W) * c.H));
  for (int t = 0; t < c.frames; ++t)
    for (int y = 0; y < c.H; ++y)
      for (int x = 0; x < c.W; ++x) {
        const double v = plateAt(waves, x + 0.5 - t * c.dx, y + 0.5 - t * c.dy) + grain(rng);
        frames[t][std::size_t(y) * c.W + x] = static_cast<unsigned char>(std::clamp(std::lround(v), 0L, 255L));
      }
  return writeFrames(out, c.W, c.H, "gray", frames, kH264);
}

// The worker from this tree, logging into `logs`.
inline WorkerSetup testWorkerSetup(const std::filesystem::path& logs) {
  WorkerSetup s = workerSetup(AppPaths::shared(), AppLanguage::french, 50.0);
  s.logs = logs;
  return s;
}

// A suite over one plate clip made once, big enough (480 x 270, 48 frames) that a job on it lasts
// about a second: a stop or a kill on its first progress lands mid-job.
struct PlateClipSuite : ::testing::Test {
  static inline TempDir* clips = nullptr;
  static std::filesystem::path clip() { return clips->path / "plate.mp4"; }
  static void SetUpTestSuite() {
    clips = new TempDir;
    ASSERT_TRUE(writePlateClip(clip(), {.W = 480, .H = 270, .frames = 48}));
  }
  static void TearDownTestSuite() {
    delete clips;
    clips = nullptr;
  }
};

}  // namespace ombrik::test
