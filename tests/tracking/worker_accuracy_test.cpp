// Both tracking engines against ground truth: a textured plate sliding (1.5, -0.75) px a frame
// over 30 frames with noise. Every visible point is compared with where the plate put its seed.
//
// Bound on the mean error: each frame pair is estimated to ~0.1 px on this texture (noise and
// H.264 included), and chaining 29 pairs adds those errors as a random walk, √29 · 0.1 ≈ 0.5 px at
// the last frame and less on average; a mean above 0.5 px means a systematic fault (a half-pixel
// shift, a wrong scale, a wrong direction). A visible point farther than 2 px from the truth means
// the visibility test let a wrong point through.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

#include "../platform/temp_dir.h"
#include "tracking/tap_server.h"
#include "worker_clips.h"

using namespace ombrik;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

const test::PlateClip kPlate;  // 320 x 180, 30 frames

struct Score {
  double mean = 0, worst = 0;
  int visible = 0, inside = 0;  // visible reports; reports whose truth lies well inside the picture
  bool lostCameBack = false;
  bool lostOutside = true;  // every point whose truth left the picture was reported lost
};

// Scores `f` reports; seeds are in pixels of the start frame.
Score score(const std::vector<json>& reports, const std::vector<std::array<double, 2>>& seeds, int start) {
  Score s;
  std::vector<bool> lost(seeds.size(), false);
  double sum = 0;
  int insideVisible = 0;
  for (const json& r : reports) {
    const int t = r["f"].get<int>() - start;
    for (std::size_t i = 0; i < seeds.size(); ++i) {
      const double tx = seeds[i][0] + t * kPlate.dx, ty = seeds[i][1] + t * kPlate.dy;
      // Beyond the engines' edge margins (half their LK window: at most 14 px of this video).
      const bool wellInside = tx > 20 && ty > 20 && tx < kPlate.W - 20 && ty < kPlate.H - 20;
      const bool outside = tx < 0 || ty < 0 || tx > kPlate.W || ty > kPlate.H;
      const auto& p = r["pts"][i];
      const bool vis = p[2].get<double>() > 0.5;
      s.inside += wellInside;
      if (!vis) {
        lost[i] = true;
        continue;
      }
      if (lost[i]) s.lostCameBack = true;
      if (outside) s.lostOutside = false;
      const double e = std::hypot(p[0].get<double>() * kPlate.W - tx, p[1].get<double>() * kPlate.H - ty);
      sum += e;
      s.worst = std::max(s.worst, e);
      ++s.visible;
      insideVisible += wellInside;
    }
  }
  s.mean = s.visible ? sum / s.visible : 1e9;
  s.inside = s.inside ? 100 * insideVisible / s.inside : 0;  // now a percentage
  return s;
}

struct AccuracyTest : ::testing::Test {
  static inline TempDir* dir = nullptr;
  static fs::path clip() { return dir->path / "plate.mp4"; }
  static void SetUpTestSuite() {
    dir = new TempDir;
    ASSERT_TRUE(test::writePlateClip(clip(), kPlate));
  }
  static void TearDownTestSuite() { delete dir; }
  fs::path python = workerPython(AppPaths::shared()).value_or("/usr/bin/python3");
  WorkerSetup setup = test::testWorkerSetup(dir->path);
};

TEST_F(AccuracyTest, BothEnginesFollowAKnownMotion) {
  struct Case {
    const char* name;
    bool fast;
    int start;
    bool backward;
    int res;  // `res` of the precise engine, `side` of the fast one
    const char* mode;
  } cases[] = {
      {"precise, full size, forward", false, 0, false, 512, ""},
      {"precise, half size, backward", false, 29, true, 160, ""},
      {"fast, point mode, forward", true, 0, false, 1920, "point"},
      {"fast, planar mode, backward", true, 29, true, 1920, "planar"},
  };
  // A grid over the plate, well inside at the start; the right column leaves the picture during a
  // forward run, the left one during a backward run.
  std::vector<std::array<double, 2>> grid;
  for (double x = 25; x <= 295; x += 30)
    for (double y = 30; y <= 150; y += 30) grid.push_back({x, y});

  TapServer server(TapServer::Role::shared, setup);
  ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
  for (const Case& c : cases) {
    std::vector<json> reports;
    std::vector<std::array<double, 2>> seeds = grid;
    auto collect = [&](const json& m) {
      if (m.contains("f")) reports.push_back(m);
      if (m.contains("seeds")) {
        seeds.clear();
        for (const auto& p : m["seeds"]) seeds.push_back({p[0].get<double>() * kPlate.W, p[1].get<double>() * kPlate.H});
      }
    };
    JobResult r;
    if (c.fast) {
      const json job = {{"video", clip().string()}, {"start", c.start}, {"backward", c.backward}, {"side", c.res},
                        {"mode", c.mode}, {"perspective", false}, {"count", 60},
                        {"poly", {{0.07, 0.12}, {0.93, 0.12}, {0.93, 0.88}, {0.07, 0.88}}}};
      r = FastRun(setup).run(python, job, collect);
    } else {
      json points = json::array();
      for (const auto& p : grid) points.push_back({p[0], p[1]});
      r = server.runJob({{"video", clip().string()}, {"start", c.start}, {"backward", c.backward}, {"res", c.res},
                         {"points", points}},
                        collect);
    }
    ASSERT_TRUE(r.ok()) << c.name << ": " << r.text;
    ASSERT_EQ(reports.size(), 30u) << c.name;
    const Score s = score(reports, seeds, c.start);
    std::printf("%-30s mean %.3f px, worst %.3f px, %d visible reports, %d%% of inner ones visible\n", c.name, s.mean,
                s.worst, s.visible, s.inside);
    EXPECT_LT(s.mean, 0.5) << c.name;
    EXPECT_LT(s.worst, 2.0) << c.name;
    EXPECT_GE(s.inside, 90) << c.name;     // the check doesn't throw good points away
    EXPECT_TRUE(s.lostOutside) << c.name;  // nor keep points that left the picture
    if (std::string(c.mode) != "planar") {
      EXPECT_FALSE(s.lostCameBack) << c.name;  // lost stays lost
    }
  }
}

}  // namespace
