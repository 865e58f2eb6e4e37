// The AI jobs at 1080p: seconds per frame of each request, through the worker server (the server
// already up, the job's module imported on its first request, reading and writing included), next
// to a plain OpenCV Python script doing the same core call (the peer, timed after its imports,
// reading its input and writing PNGs included):
//   body_video      10 frames   selfie network at 256 x 256 on each frame
//   sam_preview     1 picture   GrabCut, 5 iterations, at the worker's working size (long side 512)
//   greenkey_frame  1 picture   a plain colour-difference key in numpy
//   denoise_video   5 frames    fastNlMeansDenoisingColoredMulti, window 5 mirrored, h 6
//   retime_flow     3 frames    DIS (medium) both ways and remap to the middle, for times 0, 0.5, 1
// The worker does more than its peer (the matte's guided filter, the key's levels and edge pass,
// the retime's occlusion weights and ProRes encoding through ffmpeg): the ratio is the price of that.
// Peak memory: VmHWM of the worker, reset before each job, and the peer's maximum resident size.
//
//   build/bench/ai_bench
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
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

const std::string kPhoto = "/usr/share/doc/opencv-doc/examples/data/messi5.jpg";  // 548 x 342
// Two positive clicks on the player: his shirt and his shorts.
const std::vector<std::pair<double, double>> kClicks = {{0.438, 0.497}, {0.511, 0.70}};

// One script, one mode per request; prints its seconds, its frame count and its peak memory (KB).
constexpr const char* kPeer = R"(import resource, sys, time
import cv2, numpy as np
mode, src, out = sys.argv[1], sys.argv[2], sys.argv[3]
t0 = time.perf_counter()
def frames_of(path):
    cap = cv2.VideoCapture(path)
    while True:
        ok, f = cap.read()
        if not ok:
            return
        yield f
n = 1
if mode == "body":
    net = cv2.dnn.readNetFromONNX(sys.argv[4])
    n = 0
    for f in frames_of(src):
        net.setInput(cv2.dnn.blobFromImage(f, 1 / 255.0, (256, 256), swapRB=True))
        p = cv2.resize(net.forward()[0, 0], (f.shape[1], f.shape[0]))
        cv2.imwrite("%s/%05d.png" % (out, n), (np.clip(p, 0, 1) * 255).astype(np.uint8))
        n += 1
elif mode == "select":
    img = cv2.imread(src)
    H, W = img.shape[:2]
    s = 512 / max(W, H)
    small = cv2.resize(img, (round(W * s), round(H * s)), interpolation=cv2.INTER_AREA)
    h, w = small.shape[:2]
    pts = [(float(a) * w, float(b) * h) for a, b in zip(sys.argv[4::2], sys.argv[5::2])]
    xs, ys = [p[0] for p in pts], [p[1] for p in pts]
    mask = np.full((h, w), cv2.GC_PR_BGD, np.uint8)
    pad = 0.25 * min(w, h)
    mask[int(max(0, min(ys) - pad)):int(max(ys) + pad), int(max(0, min(xs) - pad)):int(max(xs) + pad)] = cv2.GC_PR_FGD
    for x, y in pts:
        cv2.circle(mask, (int(x), int(y)), int(0.02 * min(w, h)), cv2.GC_FGD, -1)
    bg, fg = np.zeros((1, 65), np.float64), np.zeros((1, 65), np.float64)
    cv2.grabCut(small, mask, None, bg, fg, 5, cv2.GC_INIT_WITH_MASK)
    sel = np.where((mask == cv2.GC_FGD) | (mask == cv2.GC_PR_FGD), 255, 0).astype(np.uint8)
    cv2.imwrite(out, cv2.resize(sel, (W, H), interpolation=cv2.INTER_NEAREST))
elif mode == "key":
    img = cv2.imread(src).astype(np.float32) / 255
    d = img[..., 1] - np.maximum(img[..., 0], img[..., 2])
    screen = np.median(d[d > 0.05])
    cv2.imwrite(out, (np.clip(1 - d / screen, 0, 1) * 255).astype(np.uint8))
elif mode == "denoise":
    fr = list(frames_of(src))
    n = len(fr)
    for i in range(n):
        win = [fr[min(abs(j), 2 * (n - 1) - abs(j))] for j in range(i - 2, i + 3)]
        clean = cv2.fastNlMeansDenoisingColoredMulti(win, 2, 5, None, 6, 6, 7, 11)
        cv2.imwrite("%s/%05d.png" % (out, i), clean)
elif mode == "retime":
    f0, f1 = list(frames_of(src))[:2]
    g0, g1 = cv2.cvtColor(f0, cv2.COLOR_BGR2GRAY), cv2.cvtColor(f1, cv2.COLOR_BGR2GRAY)
    dis = cv2.DISOpticalFlow_create(cv2.DISOPTICAL_FLOW_PRESET_MEDIUM)
    f01, f10 = dis.calc(g0, g1, None), dis.calc(g1, g0, None)
    gx, gy = np.meshgrid(np.arange(f0.shape[1], dtype=np.float32), np.arange(f0.shape[0], dtype=np.float32))
    w0 = cv2.remap(f0, gx - 0.5 * f01[..., 0], gy - 0.5 * f01[..., 1], cv2.INTER_LINEAR)
    w1 = cv2.remap(f1, gx - 0.5 * f10[..., 0], gy - 0.5 * f10[..., 1], cv2.INTER_LINEAR)
    for i, f in enumerate((f0, cv2.addWeighted(w0, 0.5, w1, 0.5, 0), f1)):
        cv2.imwrite("%s/%05d.png" % (out, i), f)
    n = 3
print(time.perf_counter() - t0, n, resource.getrusage(resource.RUSAGE_SELF).ru_maxrss)
)";

struct Run {
  double perFrame = -1;  // seconds
  long peakKb = -1;
};

bool sh(const std::string& cmd) { return std::system(cmd.c_str()) == 0; }

// The 1080p footage: the photo enlarged, sliding 4 px right and 2 px down a frame, with grain.
bool writeClip(const fs::path& file, int frames) {
  return sh("ffmpeg -v error -y -loop 1 -i '" + kPhoto +
            "' -vf \"scale=2400:1400,crop=1920:1080:x='4*n':y='2*n',noise=alls=10:allf=t\" -r 25 -frames:v " +
            std::to_string(frames) + " " + bench::kH264Veryfast + " '" + file.string() + "'");
}

long vmHwmKb(int pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);)
    if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
  return -1;
}

Run worker(TapServer& server, json request, int frames) {
  // Writing 5 to clear_refs resets the peak to the current size: the peak is then this job's.
  std::ofstream("/proc/" + std::to_string(server.pid()) + "/clear_refs") << "5";
  const auto t0 = Clock::now();
  const JobResult r = server.runJob(request, nullptr);
  const double s = seconds(t0);
  if (!r.ok()) {
    std::fprintf(stderr, "%s: %s\n", request["type"].get<std::string>().c_str(), r.text.c_str());
    return {};
  }
  return {s / frames, vmHwmKb(server.pid())};
}

Run peer(const fs::path& python, const fs::path& script, const std::string& args) {
  FILE* out = popen((python.string() + " '" + script.string() + "' " + args).c_str(), "r");
  if (!out) return {};
  char buf[256] = {};
  const bool got = std::fgets(buf, sizeof buf, out) != nullptr;
  if (pclose(out) != 0 || !got) return {};
  double s = 0;
  int n = 0;
  long kb = 0;
  std::istringstream(buf) >> s >> n >> kb;
  return n > 0 ? Run{s / n, kb} : Run{};
}

void print(const char* name, const Run& w, const Run& p) {
  std::printf("%-15s worker %7.3f s/frame  peer %7.3f s/frame  worker/peer %6.2f  peak MB worker %5ld peer %5ld\n",
              name, w.perFrame, p.perFrame, w.perFrame > 0 && p.perFrame > 0 ? w.perFrame / p.perFrame : 0.0,
              w.peakKb / 1024, p.peakKb / 1024);
}

}  // namespace

int main() {
  const fs::path dir = fs::temp_directory_path() / ("ombrik-ai-" + std::to_string(getpid()));
  const fs::path clip10 = dir / "clip10.mp4", clip5 = dir / "clip5.mp4", still = dir / "still.png",
                 green = dir / "green.png", peerOut = dir / "peer";
  fs::create_directories(peerOut);
  const bool made =
      writeClip(clip10, 10) && writeClip(clip5, 5) &&
      sh("ffmpeg -v error -y -i '" + kPhoto + "' -vf scale=1920:1080 '" + still.string() + "'") &&
      // A test card over an evenly lit green screen, with grain.
      sh("ffmpeg -v error -y -f lavfi -i color=c=0x20B040:s=1920x1080 -f lavfi -i testsrc2=s=800x600 "
         "-filter_complex \"[0][1]overlay=560:240,noise=alls=6\" -frames:v 1 '" + green.string() + "'");
  if (!made) return std::fprintf(stderr, "could not write the pictures\n"), 1;
  const auto python = workerPython(AppPaths::shared());
  if (!python) return std::fprintf(stderr, "no python3\n"), 1;
  const fs::path script = dir / "peer.py";
  std::ofstream(script) << kPeer;

  // Every core for the worker, as the peer's OpenCV takes them.
  WorkerSetup setup = workerSetup(AppPaths::shared(), AppLanguage::english, 100.0);
  setup.logs = dir;
  const fs::path selfie = AppPaths::shared().models / "selfie.onnx";
  std::printf("1920x1080 on %u cores\n", std::max(1u, std::thread::hardware_concurrency()));
  TapServer server(TapServer::Role::shared, setup);
  if (auto e = server.ensureRunning(*python, nullptr)) return std::fprintf(stderr, "%s\n", e->c_str()), 1;

  const auto q = [](const fs::path& p) { return "'" + p.string() + "' "; };
  json clicks = json::array();
  std::string clickArgs;
  for (const auto& [x, y] : kClicks) {
    clicks.push_back({x, y, 1.0});
    clickArgs += std::to_string(x) + " " + std::to_string(y) + " ";
  }
  const auto out = [&](const char* name) { return (dir / name).string(); };
  print("body_video",
        worker(server, {{"type", "body_video"}, {"video", clip10.string()}, {"outdir", out("body")}}, 10),
        peer(*python, script, "body " + q(clip10) + q(peerOut) + q(selfie)));
  print("sam_preview",
        worker(server,
               {{"type", "sam_preview"}, {"image", still.string()}, {"points", clicks}, {"out", out("s.png")}}, 1),
        peer(*python, script, "select " + q(still) + q(peerOut / "s.png") + clickArgs));
  print("greenkey_frame",
        worker(server, {{"type", "greenkey_frame"}, {"image", green.string()}, {"out", out("k.png")}}, 1),
        peer(*python, script, "key " + q(green) + q(peerOut / "k.png")));
  const json denoise = {
      {"type", "denoise_video"}, {"video", clip5.string()}, {"outdir", out("dn")}, {"engine", "fast"}, {"sigma", 10}};
  print("denoise_video", worker(server, denoise, 5), peer(*python, script, "denoise " + q(clip5) + q(peerOut)));
  const json retime = {
      {"type", "retime_flow"}, {"video", clip5.string()}, {"times", {0, 0.5, 1}}, {"out", out("r.mov")}};
  print("retime_flow", worker(server, retime, 3), peer(*python, script, "retime " + q(clip5) + q(peerOut)));
  server.stop();
  fs::remove_all(dir);
  return 0;
}
