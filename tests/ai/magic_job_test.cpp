// One AI job through the real worker: done, the worker's refusal, a cancel and a worker that dies.
#include <gtest/gtest.h>
#include <signal.h>

#include "../platform/temp_dir.h"
#include "../tracking/worker_clips.h"
#include "ai/magic_job.h"
#include "tracking/tap_server.h"

using namespace ombrik;
using nlohmann::json;
namespace fs = std::filesystem;

namespace {

struct MagicJobTest : test::PlateClipSuite {

  TempDir logs;
  std::optional<fs::path> python = workerPython(AppPaths::shared());
  TapServer server{TapServer::Role::shared, test::testWorkerSetup(logs.path)};
  std::atomic<bool> cancel{false};

  static json trackJob() {
    return {{"video", clip().string()}, {"start", 0}, {"backward", false}, {"res", 1920},
            {"points", {{100.5, 80.5}, {240, 135}}}};
  }
};

}  // namespace

TEST_F(MagicJobTest, EndsWithDoneTheWorkersErrorOrACancelWhenFlagged) {
  EXPECT_EQ(magicJob(server, std::nullopt, trackJob(), {}, cancel), std::string(kAiNoPython));
  ASSERT_TRUE(python);

  std::vector<std::string> statuses;
  std::vector<int> segs;
  const MagicJobHooks hooks{[&](int n) { segs.push_back(n); }, [&](const std::string& s) { statuses.push_back(s); }};
  EXPECT_EQ(magicJob(server, python, trackJob(), hooks, cancel), std::nullopt);
  ASSERT_FALSE(statuses.empty());
  EXPECT_EQ(statuses.front(), kTrackerStarting);
  ASSERT_FALSE(segs.empty());
  EXPECT_TRUE(std::is_sorted(segs.begin(), segs.end()));

  const int pid = server.pid();
  EXPECT_EQ(magicJob(server, python, {{"type", "nope_job"}}, hooks, cancel),
            std::string("nope_job : pas encore disponible dans ce worker"));
  EXPECT_EQ(server.pid(), pid);  // a refused job leaves the worker serving

  // A stream ended mid-job is a cancel only when the cancel flag is set; the same worker first.
  const std::string stopped = aiStoppedText(logs.path / "last_run.log");
  struct Case {
    bool flag, kill;  // the cancel flag set; the worker killed rather than stopped
    std::string text;
  };
  for (const Case& c : {Case{true, false, kAiCancelled}, Case{false, false, stopped}, Case{false, true, stopped}}) {
    cancel = false;
    int seen = 0;
    const MagicJobHooks stopAtFirst{[&](int) {
                                if (seen++) return;
                                cancel = c.flag;
                                if (c.kill) ::kill(server.pid(), SIGKILL);
                                else server.stop();
                              },
                              nullptr};
    EXPECT_EQ(magicJob(server, python, trackJob(), stopAtFirst, cancel), c.text) << c.flag << c.kill;
    EXPECT_EQ(seen, 1);
    EXPECT_FALSE(server.running());
  }
}
