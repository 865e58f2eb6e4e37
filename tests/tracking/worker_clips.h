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

// Frame t shows a smooth texture (a sum of sinusoids all round, wavelengths 20 to 80 px)
// moved by t·(dx, dy), plus noise, encoded in H.264. A point of the plate at (x, y) on frame 0 is at
// (x + t·dx, y + t·dy) on frame t, in continuous pixel coordinates.
inline bool writePlateClip(const std::filesystem::path& out, const PlateClip& c) {
  std::mt19937 rng(7);
  const std::vector<PlateWave> waves = plateWaves(rng, 0.22);
  std::normal_distribution<double> grain(0, c.noise);
  const std::string cmd = "ffmpeg -v error -y -f rawvideo -pix_fmt gray -s " + std::to_string(c.W) + "x" +
                          std::to_string(c.H) + " -r 25 -i - -c:v libx264 -crf 12 -pix_fmt yuv420p '" + out.string() + "'";
  FILE* pipe = popen(cmd.c_str(), "w");
  if (!pipe) return false;
  std::vector<unsigned char> frame(std::size_t(c.W) * c.H);
  for (int t = 0; t < c.frames; ++t) {
    for (int y = 0; y < c.H; ++y)
      for (int x = 0; x < c.W; ++x) {
        const double X = x + 0.5 - t * c.dx, Y = y + 0.5 - t * c.dy;
        const double v = plateAt(waves, X, Y) + grain(rng);
        frame[std::size_t(y) * c.W + x] = static_cast<unsigned char>(std::clamp(std::lround(v), 0L, 255L));
      }
    fwrite(frame.data(), 1, frame.size(), pipe);
  }
  return pclose(pipe) == 0;
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
