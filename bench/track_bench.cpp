// Tracking speed at 1080p: the precise engine (dense flow, through the worker server) at both
// working sizes and the fast engine (om_klt, one process per job), in frames per second, next to a
// plain OpenCV Python script doing the same Lucas-Kanade tracking with the same forward-backward
// check (the peer), without the protocol, the seeds' outline or the visibility rules.
// The clip is a textured picture sliding 2 px right and 1 px down a frame, written by ffmpeg.
//
//   build/bench/track_bench [frames]     (default 40)
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "bench_clips.h"
#include "platform/app_paths.h"
#include "tracking/tap_server.h"

using namespace ombrik;
namespace fs = std::filesystem;
using bench::Clock;
using bench::seconds;
using nlohmann::json;

namespace {

// What anyone would write with OpenCV alone: 100 good features, pyramidal LK frame to frame, and
// back again to drop the points that don't return.
constexpr const char* kPeer = R"(import sys, cv2, numpy
cap = cv2.VideoCapture(sys.argv[1])
ok, frame = cap.read()
prev = cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)
pts = cv2.goodFeaturesToTrack(prev, 100, 0.01, 10)
n = 1
while True:
    ok, frame = cap.read()
    if not ok:
        break
    g = cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)
    nxt, st, err = cv2.calcOpticalFlowPyrLK(prev, g, pts, None, winSize=(21, 21), maxLevel=3)
    back, st2, err = cv2.calcOpticalFlowPyrLK(g, prev, nxt, None, winSize=(21, 21), maxLevel=3)
    good = (numpy.linalg.norm((back - pts).reshape(-1, 2), axis=1) < 1) & (st.ravel() == 1)
    pts = nxt[good].reshape(-1, 1, 2)
    prev = g
    n += 1
print(n)
)";

}  // namespace

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(10, std::atoi(argv[1])) : 40;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-track-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const fs::path clip = dir / "slide.mp4";
  const std::string make = "ffmpeg -v error -y -f lavfi -i testsrc2=size=2400x1400:rate=25 -frames:v " +
                           std::to_string(frames) + " -vf \"crop=1920:1080:x='2*n':y='n'\" " + bench::kH264Veryfast +
                           " '" + clip.string() + "'";
  if (std::system(make.c_str()) != 0) return std::fprintf(stderr, "could not write the clip\n"), 1;
  const auto python = workerPython(AppPaths::shared());
  if (!python) return std::fprintf(stderr, "no python3\n"), 1;

  // Every core for the worker, as the peer's OpenCV takes them.
  const int cores = int(std::max(1u, std::thread::hardware_concurrency()));
  WorkerSetup setup = workerSetup(AppPaths::shared(), AppLanguage::english, 100.0);
  setup.logs = dir;
  std::printf("%d frames of 1920x1080, on %d cores, 100 points\n", frames, cores);

  json points = json::array();
  for (int i = 0; i < 10; ++i)
    for (int j = 0; j < 10; ++j) points.push_back({400 + 110 * i, 200 + 70 * j});
  TapServer server(TapServer::Role::shared, setup);
  if (auto e = server.ensureRunning(*python, nullptr)) return std::fprintf(stderr, "%s\n", e->c_str()), 1;
  for (const int res : {1920, 512}) {
    int reports = 0;
    const auto t0 = Clock::now();
    const JobResult r = server.runJob({{"video", clip.string()}, {"start", 0}, {"res", res}, {"points", points}},
                                      [&](const json& m) { reports += m.contains("f"); });
    if (!r.ok()) return std::fprintf(stderr, "precise: %s\n", r.text.c_str()), 1;
    std::printf("precise engine, res %4d: %6.1f frames/s (%d frames, decoding included)\n", res,
                reports / seconds(t0), reports);
  }

  int reports = 0;
  auto t0 = Clock::now();
  const json job = {{"video", clip.string()}, {"start", 0}, {"side", 1920}, {"mode", "point"}, {"count", 100},
                    {"poly", {{0.1, 0.1}, {0.9, 0.1}, {0.9, 0.9}, {0.1, 0.9}}}};
  const JobResult r = FastRun(setup).run(*python, job, [&](const json& m) { reports += m.contains("f"); });
  if (!r.ok()) return std::fprintf(stderr, "fast: %s\n", r.text.c_str()), 1;
  const double fast = reports / seconds(t0);
  std::printf("fast engine, side 1920:   %6.1f frames/s (process start and decoding included)\n", fast);

  std::ofstream(dir / "peer.py") << kPeer;
  t0 = Clock::now();
  const std::string peerCmd = python->string() + " '" + (dir / "peer.py").string() + "' '" + clip.string() + "' >/dev/null";
  if (std::system(peerCmd.c_str()) != 0) return std::fprintf(stderr, "the peer failed\n"), 1;
  const double peer = frames / seconds(t0);
  std::printf("peer (plain OpenCV LK):   %6.1f frames/s (same, with the check)\n", peer);
  std::printf("fast engine / peer: %.2f\n", fast / peer);
  fs::remove_all(dir);
  return 0;
}
