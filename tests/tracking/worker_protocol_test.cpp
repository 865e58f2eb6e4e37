// The real worker processes driven through TapServer and FastRun: the handshake, a track job,
// bad requests, a worker killed or frozen in the middle of a job, a fresh start afterwards, and
// the accuracy of both engines on ground truth.
#include <gtest/gtest.h>
#include <signal.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <thread>

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

struct WorkerTest : test::PlateClipSuite {
  TempDir logs;
  fs::path python = workerPython(AppPaths::shared()).value_or("/usr/bin/python3");
  WorkerSetup setup = test::testWorkerSetup(logs.path);

  static json trackRequest(int start, bool backward) {
    return {{"video", clip().string()}, {"start", start}, {"backward", backward}, {"res", 1920},
            {"points", {{100.5, 80.5}, {240, 135}, {300, 200}}}};
  }
};

TEST_F(WorkerTest, TracksAndStaysUpThroughBadRequests) {
  TapServer server(TapServer::Role::shared, setup);
  std::vector<std::string> statuses;
  ASSERT_EQ(server.ensureRunning(python, [&](const std::string& s) { statuses.push_back(s); }), std::nullopt);
  EXPECT_EQ(statuses, std::vector<std::string>{kTrackerStarting});
  const int pid = server.pid();

  // Every frame from the start to the clip's end, a seg every 10 frames (frames finished so far).
  // What each report holds is checked by WorkerAccuracy.
  for (const auto& [start, backward] : {std::pair{30, false}, std::pair{12, true}}) {
    std::vector<int> frames, segs, want;
    const JobResult r = server.runJob(trackRequest(start, backward), [&](const json& m) {
      if (m.contains("f")) frames.push_back(m["f"]);
      if (m.contains("seg")) segs.push_back(m["seg"]);
    });
    EXPECT_TRUE(r.ok()) << r.text;
    for (int f = start; f >= 0 && f < 48; f += backward ? -1 : 1) want.push_back(f);
    EXPECT_EQ(frames, want);
    EXPECT_EQ(segs, (std::vector<int>{10}));
  }

  // The start frame reports the seeds themselves, normalised to the video.
  std::vector<json> first;
  server.runJob(trackRequest(47, false), [&](const json& m) { if (m.contains("f")) first.push_back(m); });
  ASSERT_EQ(first.size(), 1u);
  EXPECT_NEAR(first[0]["pts"][0][0].get<double>(), 100.5 / 480, 1e-6);
  EXPECT_NEAR(first[0]["pts"][0][1].get<double>(), 80.5 / 270, 1e-6);
  EXPECT_EQ(first[0]["pts"][0][2].get<double>(), 1.0);

  // Each bad request answers one error and the same worker serves the next job.
  ASSERT_EQ(server.sendLine("{not json"), std::nullopt);
  const WorkerReply bad = server.nextMessage();
  ASSERT_EQ(bad.kind, WorkerReply::Kind::message);
  EXPECT_EQ(bad.body["error"].get<std::string>().rfind("requête illisible (JSON attendu) : ", 0), 0u) << bad.body;
  const JobResult unknown = server.runJob({{"type", "fill"}, {"image", "/x.png"}}, nullptr);
  EXPECT_EQ(unknown.end, JobResult::End::error);
  EXPECT_EQ(unknown.text, "fill : pas encore disponible dans ce worker");
  const JobResult noVideo = server.runJob({{"video", "/nowhere.mp4"}, {"start", 0}, {"points", {{1, 1}}}}, nullptr);
  EXPECT_EQ(noVideo.text, "vidéo illisible : /nowhere.mp4");
  EXPECT_TRUE(server.runJob(trackRequest(40, false), nullptr).ok());
  EXPECT_EQ(server.pid(), pid);

  TapServer gen(TapServer::Role::gen, setup);
  ASSERT_EQ(gen.ensureRunning(python, nullptr), std::nullopt);
  EXPECT_EQ(gen.runJob(trackRequest(40, false), nullptr).text,
            "le suivi de points n'est pas servi par ce worker (--no-track)");
  EXPECT_TRUE(fs::exists(logs.path / "last_run_fill.log"));

  // What the running worker really got, and a boost change that restarts it.
  auto environ = [](int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  for (const char* var : {"PYTHONUNBUFFERED=1", "PYTHONNOUSERSITE=1", "HF_HUB_DISABLE_XET=1", "OMBRIK_LANG=fr"})
    EXPECT_NE(environ(pid).find(std::string(var) + '\0'), std::string::npos) << var;
  EXPECT_NE(environ(pid).find("OM_THREADS=" + setup.environment.at("OM_THREADS") + '\0'), std::string::npos);
  server.configure(setup);
  EXPECT_EQ(server.pid(), pid);
  setup.environment["OM_THREADS"] = "7";
  server.configure(setup);
  EXPECT_FALSE(server.running());
  ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
  EXPECT_NE(environ(server.pid()).find(std::string("OM_THREADS=7") + '\0'), std::string::npos);
}

TEST_F(WorkerTest, KilledFrozenStoppedOrCancelledWorkersSaySoAndAFreshOneStarts) {
  setup.replyTimeout = std::chrono::milliseconds(1500);
  TapServer server(TapServer::Role::shared, setup);
  const std::string log = (logs.path / "last_run.log").string();
  struct Case {
    int signal;
    std::string text;
  };
  for (const Case& c : {Case{SIGKILL, kTrackerStopped + log}, Case{SIGSTOP, kTrackerHung + log}}) {
    ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
    const int pid = server.pid();
    int frames = 0;
    const JobResult r = server.runJob(trackRequest(0, false), [&](const json& m) {
      if (m.contains("f") && frames++ == 0) ::kill(pid, c.signal);
    });
    EXPECT_EQ(r.end, JobResult::End::error);
    EXPECT_EQ(r.text, c.text);
    EXPECT_LT(frames, 48);
    EXPECT_FALSE(server.running());
    EXPECT_NE(::kill(pid, 0), 0);  // gone and reaped, the frozen one too
    EXPECT_EQ(server.send(trackRequest(0, false)), std::string(kTrackerNotStarted));
  }
  EXPECT_NE(slurp(log).find("[ombrik] no reply for 1 s"), std::string::npos) << slurp(log);

  // A worker that dies between jobs is replaced by the next ensureRunning.
  ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
  const int idle = server.pid();
  ::kill(idle, SIGKILL);
  for (int i = 0; i < 200 && slurp("/proc/" + std::to_string(idle) + "/stat").find(") Z ") == std::string::npos; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
  EXPECT_NE(server.pid(), idle);
  EXPECT_TRUE(server.runJob(trackRequest(40, true), nullptr).ok());

  // A stop asked for during a job is a cancel, not an error.
  const JobResult r = server.runJob(trackRequest(0, false), [&](const json& m) {
    if (m.contains("f")) std::thread([&] { server.stop(); }).join();
  });
  EXPECT_EQ(r.end, JobResult::End::cancelled);
  EXPECT_FALSE(server.running());

  // FastRun, the fast engine's own worker: a refused contour, and a cancel at the first report.
  setup.replyTimeout = WorkerSetup{}.replyTimeout;  // its start may be slower than the 1.5 s above
  const JobResult bad = FastRun(setup).run(python, {{"video", clip().string()}, {"start", 0}, {"poly", {{0, 0}}}}, nullptr);
  EXPECT_EQ(bad.text, "contour trop petit (3 points au moins)");

  const json job = {{"video", clip().string()}, {"start", 40}, {"backward", true}, {"side", 1920}, {"mode", "planar"},
                    {"perspective", true}, {"poly", {{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.2, 0.8}}}, {"count", 50}};
  FastRun cancelled(setup);
  int reports = 0;
  const JobResult c = cancelled.run(python, job, [&](const json& m) {
    if (m.contains("f") && reports++ == 0) std::thread([&] { cancelled.cancel(); }).join();
  });
  EXPECT_EQ(c.end, JobResult::End::cancelled);
  EXPECT_EQ(reports, 1);

  // Nothing running: no reply to wait for, no job to run.
  EXPECT_EQ(server.nextMessage().kind, WorkerReply::Kind::end);
  EXPECT_EQ(server.runJob(trackRequest(0, false), nullptr).text, kTrackerNotStarted);

  // A worker that never comes up: no scripts (python ends at once), or no python at all.
  TempDir empty;
  setup.scripts = empty.path;
  server.configure(setup);
  EXPECT_EQ(server.ensureRunning(python, nullptr), kTrackerDidNotStart + log);
  EXPECT_NE(slurp(log).find("om_track.py"), std::string::npos) << slurp(log);
  EXPECT_FALSE(server.running());
  EXPECT_EQ(server.ensureRunning("/nowhere/python3", nullptr), kTrackerDidNotStart + log);
  EXPECT_NE(slurp(log).find("/nowhere/python3"), std::string::npos) << slurp(log);
}

TEST(WorkerEnvironment, FollowsTheBoost) {
  struct Case {
    double percent;
    int cores;
    const char *threads, *high, *low;
  } cases[] = {{0, 8, "4", "1.14", "0.91"}, {150, 4, "6", "2.40", "1.92"}, {10, 2, "1", "0.44", "0.35"}};
  for (const Case& c : cases) {
    const auto env = boostEnvironment(c.percent, c.cores);
    EXPECT_EQ(env.at("OM_THREADS"), c.threads) << c.percent;
    EXPECT_EQ(env.at("PYTORCH_MPS_HIGH_WATERMARK_RATIO"), c.high) << c.percent;
    EXPECT_EQ(env.at("PYTORCH_MPS_LOW_WATERMARK_RATIO"), c.low) << c.percent;
  }
}

// Both engines against ground truth: the plate of worker_clips.h sliding (1.5, -0.75) px a frame over
// 30 frames with noise; every visible point is compared with where the plate put its seed. Each frame
// pair is estimated to ~0.1 px here, chained over 29 pairs as a random walk: √29 · 0.1 ≈ 0.5 px at the
// last frame, less on average, so a mean above 0.5 px is a systematic fault (a half-pixel shift, a
// wrong scale or direction); a visible point 2 px off is one the visibility test let through.
TEST(WorkerAccuracy, BothEnginesFollowAKnownMotion) {
  TempDir dir;
  const fs::path clip = dir.path / "plate.mp4";
  ASSERT_TRUE(test::writePlateClip(clip, kPlate));
  const fs::path python = workerPython(AppPaths::shared()).value_or("/usr/bin/python3");
  const WorkerSetup setup = test::testWorkerSetup(dir.path);
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
      if (m.contains("f")) {
        EXPECT_EQ(m["pts"].size(), seeds.size()) << c.name << ": the fast engine sends its seeds first";
        reports.push_back(m);
      }
      if (m.contains("seeds")) {
        seeds.clear();
        for (const auto& p : m["seeds"]) seeds.push_back({p[0].get<double>() * kPlate.W, p[1].get<double>() * kPlate.H});
      }
    };
    JobResult r;
    if (c.fast) {
      const json job = {{"video", clip.string()}, {"start", c.start}, {"backward", c.backward}, {"side", c.res},
                        {"mode", c.mode}, {"perspective", false}, {"count", 60},
                        {"poly", {{0.07, 0.12}, {0.93, 0.12}, {0.93, 0.88}, {0.07, 0.88}}}};
      r = FastRun(setup).run(python, job, collect);
    } else {
      json points = json::array();
      for (const auto& p : grid) points.push_back({p[0], p[1]});
      r = server.runJob({{"video", clip.string()}, {"start", c.start}, {"backward", c.backward}, {"res", c.res},
                         {"points", points}},
                        collect);
    }
    ASSERT_TRUE(r.ok()) << c.name << ": " << r.text;
    ASSERT_EQ(reports.size(), 30u) << c.name;
    EXPECT_EQ(reports.front()["f"], c.start) << c.name;
    EXPECT_EQ(reports.back()["f"], c.backward ? 0 : 29) << c.name;
    if (c.fast) {
      EXPECT_GE(seeds.size(), 42u) << c.name << ": 7 in 10 of the 60 asked at least, grid included";
      EXPECT_LE(seeds.size(), 60u) << c.name;
    }
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
