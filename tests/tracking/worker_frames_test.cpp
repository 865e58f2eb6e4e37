// The worker's frame jobs, run for real through TapServer on clips made here with known truth:
// denoise (PSNR against the clean plate), retime (the in-between's shift), green key (alpha
// against the drawn matte), and requests that can't be served.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>

#include "../platform/temp_dir.h"
#include "media/frame_reader.h"
#include "tracking/tap_server.h"
#include "worker_clips.h"

using namespace ombrik;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

using test::Picture;
using test::rgbOf;

// The plate of worker_clips.h in colour (each wave tinted) at a horizontal shift of `s` pixels.
Picture colourPlate(int w, int h, double s, bool grey) {
  std::mt19937 rng(7);
  const auto waves = test::plateWaves(rng, 0.22);
  std::uniform_real_distribution<double> uni(0.5, 1.5);
  std::vector<std::array<double, 3>> tint;
  for (std::size_t k = 0; k < waves.size(); ++k) tint.push_back({uni(rng), uni(rng), uni(rng)});
  Picture p(std::size_t(w) * h * 3, 128);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (std::size_t k = 0; k < waves.size(); ++k) {
        const auto& v = waves[k];
        const double a = v.amp * std::sin(v.kx * (x + 0.5 - s) + v.ky * (y + 0.5) + v.phase);
        for (int c = 0; c < 3; ++c) p[(std::size_t(y) * w + x) * 3 + c] += a * (grey ? 1.0 : tint[k][c]);
      }
  for (double& v : p) v = std::clamp(v, 0.0, 255.0);
  return p;
}

double psnr(const Picture& a, const Picture& b) {
  double se = 0;
  for (std::size_t i = 0; i < a.size(); ++i) se += (a[i] - b[i]) * (a[i] - b[i]);
  return 10 * std::log10(255.0 * 255.0 / (se / a.size()));
}

// A ".dn" file: its size, then RGBA half floats; empty when the size and the length disagree.
std::vector<float> readDn(const fs::path& file, std::uint32_t size[2]) {
  const std::string bytes = slurp(file);
  if (bytes.size() < 8) return {};
  std::memcpy(size, bytes.data(), 8);
  std::vector<float> px(std::size_t(size[0]) * size[1] * 4);
  if (bytes.size() != 8 + px.size() * 2) return {};
  for (std::size_t i = 0; i < px.size(); ++i) {
    std::uint16_t v;
    std::memcpy(&v, bytes.data() + 8 + i * 2, 2);
    px[i] = halfToFloat(v);
  }
  return px;
}

// A subject with a soft edge (an ellipse, about 3 px of ramp, a textured orange) over a green
// screen with grain. The alpha drawn is the truth.
struct GreenShot {
  int w = 480, h = 270;
  Picture picture;
  std::vector<double> alpha;
};
GreenShot greenShot(double grain) {
  GreenShot g;
  std::mt19937 rng(3);
  std::normal_distribution<double> noise(0, grain);
  g.picture.resize(std::size_t(g.w) * g.h * 3);
  g.alpha.resize(std::size_t(g.w) * g.h);
  for (int y = 0; y < g.h; ++y)
    for (int x = 0; x < g.w; ++x) {
      const double X = x + 0.5, Y = y + 0.5;
      const double d = std::hypot((X - 240) / 110, (Y - 135) / 80);
      const double a = std::clamp((1 - d) * 80 / 3 + 0.5, 0.0, 1.0);
      const double fg[3] = {205 + 25 * std::sin(X / 7), 128 + 25 * std::sin(Y / 5), 90 + 12 * std::cos(X / 9)};
      const double bg[3] = {50, 180, 64};
      g.alpha[std::size_t(y) * g.w + x] = a;
      for (int c = 0; c < 3; ++c) g.picture[(std::size_t(y) * g.w + x) * 3 + c] = a * fg[c] + (1 - a) * bg[c] + noise(rng);
    }
  return g;
}

struct WorkerFramesTest : ::testing::Test {
  static inline TempDir* dir = nullptr;
  static inline std::vector<Picture> clean, noisy;
  static constexpr int kW = 256, kH = 144, kFrames = 8;
  static constexpr double kSigma = 10, kStep = 4;  // noise in 8-bit levels; retime plate: px a frame
  static fs::path path(const char* name) { return dir->path / name; }

  static void SetUpTestSuite() {
    dir = new TempDir;
    server = new TapServer(TapServer::Role::shared, test::testWorkerSetup(dir->path));
    std::mt19937 rng(11);
    std::normal_distribution<double> noise(0, kSigma);
    for (int t = 0; t < kFrames; ++t) {
      clean.push_back(colourPlate(kW, kH, t, false));
      noisy.push_back(clean.back());
      for (double& v : noisy.back()) v = std::clamp(double(std::lround(v + noise(rng))), 0.0, 255.0);
    }
    // Lossless RGB: the worker and this test see the same noisy values.
    ASSERT_TRUE(test::writePictures(path("noisy.mkv"), kW, kH, noisy, "-c:v ffv1 -pix_fmt bgr0"));
    std::vector<Picture> slide;
    for (int t = 0; t < 6; ++t) slide.push_back(colourPlate(320, 180, t * kStep, true));
    ASSERT_TRUE(test::writePictures(path("slide.mkv"), 320, 180, slide, "-c:v ffv1 -pix_fmt bgr0"));
    const GreenShot g = greenShot(5);
    ASSERT_TRUE(test::writePictures(path("green.png"), g.w, g.h, {g.picture}, "-frames:v 1"));
    ASSERT_TRUE(test::writePictures(path("green.mkv"), g.w, g.h, {g.picture, g.picture, g.picture}, "-c:v ffv1 -pix_fmt bgr0"));
    ASSERT_TRUE(test::writePictures(path("grey.png"), 64, 64, {Picture(64 * 64 * 3, 120)}, "-frames:v 1"));
  }
  static void TearDownTestSuite() {
    delete server;
    delete dir;
  }

  // One worker serves the whole suite, as it serves the application: starting it is the slow part.
  static inline TapServer* server = nullptr;
  void SetUp() override {
    ASSERT_EQ(server->ensureRunning(workerPython(AppPaths::shared()).value_or("/usr/bin/python3"), nullptr), std::nullopt);
  }

  // Runs a job; its seg replies in `segs`.
  static JobResult run(const json& job, std::vector<int>* segs = nullptr) {
    return server->runJob(job, [&](const json& m) {
      if (segs && m.contains("seg")) segs->push_back(m["seg"]);
    });
  }
};

TEST_F(WorkerFramesTest, DenoiseRemovesMostOfTheNoise) {
  // The files hold the removed noise centred on 0.5: the plate minus (file - 0.5) is the denoised frame.
  auto denoised = [](const Picture& plate, auto noiseAt) {
    Picture out(plate.size());
    for (std::size_t i = 0; i < plate.size(); ++i) out[i] = plate[i] - 255.0 * (noiseAt(i) - 0.5);
    return out;
  };
  std::vector<int> segs;
  const JobResult r = run({{"type", "denoise_video"}, {"video", path("noisy.mkv")}, {"outdir", path("dn")},
                           {"engine", "fast"}, {"sigma", 0}},
                          &segs);
  ASSERT_TRUE(r.ok()) << r.text;
  EXPECT_EQ(segs, (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8}));
  for (int f : {0, 4, 7}) {
    char name[16];
    std::snprintf(name, sizeof name, "%05d.dn", f);
    std::uint32_t size[2] = {0, 0};
    const std::vector<float> px = readDn(path("dn") / name, size);
    ASSERT_EQ(px.size(), std::size_t(kW) * kH * 4) << name;
    EXPECT_TRUE(size[0] == kW && size[1] == kH) << name;
    EXPECT_EQ(px[3], 1.0f);
    const double before = psnr(noisy[f], clean[f]);
    const double after = psnr(denoised(noisy[f], [&](std::size_t i) { return px[i / 3 * 4 + i % 3]; }), clean[f]);
    std::printf("[ figures  ] denoise fast, sigma %.0f measured, frame %d: PSNR %.1f dB -> %.1f dB\n", kSigma, f, before, after);
    EXPECT_GT(after - before, 8.0) << name;
  }

  const JobResult one = run({{"type", "denoise_frame"}, {"video", path("noisy.mkv")}, {"frame", 3}, {"engine", "scunet"},
                             {"sigma", kSigma}, {"out", path("dn3.png")}});
  ASSERT_TRUE(one.ok()) << one.text;
  const auto png = SourcePicture::load(path("dn3.png"));
  ASSERT_TRUE(png && png->width == kW && png->height == kH);
  const Picture stored = rgbOf(*png);
  const double before = psnr(noisy[3], clean[3]);
  const double after = psnr(denoised(noisy[3], [&](std::size_t i) { return stored[i] / 255.0; }), clean[3]);
  std::printf("[ figures  ] denoise_frame (7 frames), frame 3: PSNR %.1f dB -> %.1f dB\n", before, after);
  EXPECT_GT(after - before, 8.0);
  EXPECT_FALSE(fs::exists(path("dn3.png.part")));
}

TEST_F(WorkerFramesTest, RetimeInBetweensLandHalfWay) {
  const std::vector<double> times = {0, 0.5, 1, 1.5, 2.25, 4.75};
  std::vector<int> segs;
  const JobResult r = run({{"type", "retime_flow"}, {"video", path("slide.mkv")}, {"times", times}, {"out", path("retime.mov")}}, &segs);
  ASSERT_TRUE(r.ok()) << r.text;
  EXPECT_EQ(segs.size(), times.size());
  std::string error;
  auto reader = FrameReader::open(path("retime.mov"), &error);
  ASSERT_TRUE(reader) << error;
  EXPECT_EQ(reader->info().frames, int(times.size()));
  EXPECT_DOUBLE_EQ(reader->info().fps, 25.0);
  for (std::size_t k = 0; k < times.size(); ++k) {
    const auto frame = reader->read(int(k));
    ASSERT_TRUE(frame && frame->width == 320 && frame->height == 180);
    const Picture got = rgbOf(*frame);
    // The shift that best explains the frame, searched by 0.25 px then 0.05 px around the truth,
    // away from the borders (where the warp repeats the edge).
    auto rmseAt = [&](double s) {
      const Picture truth = colourPlate(320, 180, s, true);
      double se = 0;
      int n = 0;
      for (int y = 12; y < 168; ++y)
        for (int x = 24; x < 296; ++x, ++n) se += std::pow(got[(std::size_t(y) * 320 + x) * 3] - truth[(std::size_t(y) * 320 + x) * 3], 2);
      return std::sqrt(se / n);
    };
    const double truth = times[k] * kStep;
    double best = truth, bestErr = rmseAt(truth);
    for (double step : {0.25, 0.05}) {
      const double from = best;
      for (int i = -6; i <= 6; ++i)
        if (const double e = rmseAt(from + i * step); e < bestErr) best = from + i * step, bestErr = e;
    }
    std::printf("[ figures  ] retime t = %.2f: shift %.2f px (truth %.2f), RMSE %.2f levels\n", times[k], best, truth, bestErr);
    EXPECT_LT(std::abs(best - truth), 0.25) << times[k];
    EXPECT_LT(bestErr, 1.0) << times[k];  // a plain cross-fade of the two frames gives 1.7
  }
}

// Requests that can't be served each say why, leave nothing behind, and the same worker then keys
// the drawn green screen, as a frame and as a video.
TEST_F(WorkerFramesTest, RefusedRequestsThenGreenKeyFindsTheDrawnMatte) {
  const int pid = server->pid();
  const std::string video = path("noisy.mkv");
  struct Refused {
    json job;
    std::string text;
  } refused[] = {  // denoise_video opens its video as greenkey_video does (the common reader)
      {{{"type", "greenkey_frame"}, {"image", "/nowhere.png"}, {"out", path("x.png")}}, "image illisible : /nowhere.png"},
      {{{"type", "greenkey_frame"}, {"image", path("grey.png")}, {"out", path("x.png")}},
       "pas d'écran vert ou bleu reconnu dans l'image"},
      {{{"type", "greenkey_video"}, {"video", "/nowhere.mp4"}, {"outdir", path("x")}}, "vidéo illisible : /nowhere.mp4"},
      {{{"type", "denoise_frame"}, {"video", video}, {"frame", 0}, {"engine", "fast"}, {"sigma", 0}},
       "clé manquante dans la requête : out"},
      {{{"type", "denoise_frame"}, {"video", video}, {"frame", 0}, {"engine", "best"}, {"sigma", 0}, {"out", path("x.png")}},
       "moteur de débruitage inconnu : best (fast ou scunet)"},
      {{{"type", "denoise_frame"}, {"video", video}, {"frame", 20}, {"engine", "fast"}, {"sigma", 5}, {"out", path("x.png")}},
       "image 20 hors de la vidéo (8 images)"},
      {{{"type", "retime_flow"}, {"video", "/nowhere.mp4"}, {"times", {0, 0.5}}, {"out", path("x.mov")}},
       "vidéo illisible : /nowhere.mp4"},
      {{{"type", "retime_flow"}, {"video", video}, {"times", json::array()}, {"out", path("x.mov")}},
       "temps de sortie invalides (une liste de nombres positifs est attendue)"},
  };
  for (const Refused& c : refused) {
    const JobResult r = run(c.job);
    EXPECT_EQ(r.end, JobResult::End::error) << c.job;
    EXPECT_EQ(r.text, c.text) << c.job;
  }
  for (const char* left : {"x.png", "x.mov", "x.mov.part.mov"}) EXPECT_FALSE(fs::exists(path(left))) << left;

  const GreenShot g = greenShot(5);
  struct Case {
    const char* name;
    json job;
    fs::path alpha;
  } cases[] = {
      {"frame", {{"type", "greenkey_frame"}, {"image", path("green.png")}, {"out", path("key.png")}}, path("key.png")},
      {"video", {{"type", "greenkey_video"}, {"video", path("green.mkv")}, {"outdir", path("gk")}}, path("gk") / "00002.png"},
  };
  for (const Case& c : cases) {
    std::vector<int> segs;
    const JobResult r = run(c.job, &segs);
    ASSERT_TRUE(r.ok()) << c.name << ": " << r.text;
    if (c.job["type"] == "greenkey_video") {
      EXPECT_EQ(segs, (std::vector<int>{1, 2, 3}));
    }
    const auto alpha = SourcePicture::load(c.alpha);
    ASSERT_TRUE(alpha && alpha->width == g.w && alpha->height == g.h) << c.name;
    const Picture a = rgbOf(*alpha);
    double err = 0, edgeErr = 0;
    int both = 0, either = 0, edge = 0;
    for (std::size_t i = 0; i < g.alpha.size(); ++i) {
      const double v = a[i * 3] / 255.0, t = g.alpha[i];
      err += std::abs(v - t);
      both += v > 0.5 && t > 0.5;
      either += v > 0.5 || t > 0.5;
      if (t > 0.02 && t < 0.98) edgeErr += std::abs(v - t), ++edge;
    }
    err /= g.alpha.size();
    edgeErr /= edge;
    const double iou = double(both) / either;
    std::printf("[ figures  ] green key (%s): IoU %.4f, mean alpha error %.4f, on the soft edge %.3f\n", c.name, iou, err, edgeErr);
    EXPECT_GT(iou, 0.98) << c.name;
    EXPECT_LT(err, 0.01) << c.name;
    EXPECT_LT(edgeErr, 0.15) << c.name;
  }
  EXPECT_EQ(server->pid(), pid);
}

}  // namespace
