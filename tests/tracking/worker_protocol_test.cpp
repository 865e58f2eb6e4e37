// The real worker processes driven through TapServer and FastRun: the handshake, a track job,
// bad requests, a worker killed or frozen in the middle of a job, and a fresh start afterwards.
#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <thread>

#include "../platform/temp_dir.h"
#include "tracking/tap_server.h"
#include "worker_clips.h"

using namespace ombrik;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

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

  struct Case {
    int start;
    bool backward;
    std::vector<int> frames;
  };
  std::vector<int> forward, backward;
  for (int f = 30; f < 48; ++f) forward.push_back(f);
  for (int f = 12; f >= 0; --f) backward.push_back(f);
  for (const Case& c : {Case{30, false, forward}, Case{12, true, backward}}) {
    std::vector<int> frames, segs;
    const JobResult r = server.runJob(trackRequest(c.start, c.backward), [&](const json& m) {
      if (m.contains("f")) {
        frames.push_back(m["f"]);
        EXPECT_EQ(m["pts"].size(), 3u);
        for (const auto& p : m["pts"]) EXPECT_EQ(p.size(), 3u);
      }
      if (m.contains("seg")) segs.push_back(m["seg"]);
    });
    EXPECT_TRUE(r.ok()) << r.text;
    EXPECT_EQ(frames, c.frames);
    EXPECT_EQ(segs, (std::vector<int>{10}));  // a seg every 10 frames, frames finished so far
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
}

TEST_F(WorkerTest, KilledOrFrozenWorkerSaysSoAndAFreshOneStarts) {
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
}

TEST_F(WorkerTest, StopDuringAJobIsACancelNotAnError) {
  TapServer server(TapServer::Role::shared, setup);
  ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
  const JobResult r = server.runJob(trackRequest(0, false), [&](const json& m) {
    if (m.contains("f")) std::thread([&] { server.stop(); }).join();
  });
  EXPECT_EQ(r.end, JobResult::End::cancelled);
  EXPECT_FALSE(server.running());
}

TEST_F(WorkerTest, NothingRunningAndAWorkerThatNeverComesUp) {
  TapServer server(TapServer::Role::shared, setup);
  EXPECT_EQ(server.nextMessage().kind, WorkerReply::Kind::end);
  EXPECT_EQ(server.runJob(trackRequest(0, false), nullptr).text, kTrackerNotStarted);

  TempDir empty;  // no scripts: python ends at once
  setup.scripts = empty.path;
  server.configure(setup);
  const std::string log = (logs.path / "last_run.log").string();
  EXPECT_EQ(server.ensureRunning(python, nullptr), kTrackerDidNotStart + log);
  EXPECT_NE(slurp(log).find("om_track.py"), std::string::npos) << slurp(log);
  EXPECT_FALSE(server.running());
  EXPECT_EQ(server.ensureRunning("/nowhere/python3", nullptr), kTrackerDidNotStart + log);
  EXPECT_NE(slurp(log).find("/nowhere/python3"), std::string::npos) << slurp(log);
}

TEST_F(WorkerTest, EnvironmentFollowsTheBoost) {
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

  // What the running worker really got, and a boost change that restarts it.
  auto environ = [](int pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  TapServer server(TapServer::Role::shared, setup);
  ASSERT_EQ(server.ensureRunning(python, nullptr), std::nullopt);
  const int pid = server.pid();
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

TEST_F(WorkerTest, FastRunSendsSeedsFirstAndCanBeCancelled) {
  const json job = {{"video", clip().string()}, {"start", 40}, {"backward", true}, {"side", 1920}, {"mode", "planar"},
                    {"perspective", true}, {"poly", {{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.2, 0.8}}}, {"count", 50}};
  FastRun run(setup);
  std::size_t seeds = 0;
  std::vector<int> frames;
  const JobResult r = run.run(python, job, [&](const json& m) {
    if (m.contains("seeds")) seeds = m["seeds"].size();
    if (m.contains("f")) {
      EXPECT_EQ(m["pts"].size(), seeds);  // zero before the seeds came
      frames.push_back(m["f"]);
    }
  });
  ASSERT_TRUE(r.ok()) << r.text;
  EXPECT_GE(seeds, 35u);  // 7 in 10 at least, grid included
  EXPECT_LE(seeds, 50u);
  ASSERT_EQ(frames.size(), 41u);
  EXPECT_EQ(frames.front(), 40);
  EXPECT_EQ(frames.back(), 0);

  const JobResult bad = FastRun(setup).run(python, {{"video", clip().string()}, {"start", 0}, {"poly", {{0, 0}}}}, nullptr);
  EXPECT_EQ(bad.text, "contour trop petit (3 points au moins)");

  FastRun cancelled(setup);
  int reports = 0;
  const JobResult c = cancelled.run(python, job, [&](const json& m) {
    if (m.contains("f") && reports++ == 0) std::thread([&] { cancelled.cancel(); }).join();
  });
  EXPECT_EQ(c.end, JobResult::End::cancelled);
  EXPECT_EQ(reports, 1);
}

}  // namespace
