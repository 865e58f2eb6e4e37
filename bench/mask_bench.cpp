// A feathered Bézier mask of 100 points drawn per frame at 1920x1080 and 4096x2160 on the
// engine's device; in the same run, a plain OpenCV script draws the same outline (its 1000 flattened
// vertices) with an anti-aliased fill and the same outward feather from a distance transform.
//
//   build/bench/mask_bench [frames]      (OMBRIK_GPU=cpu forces lavapipe)
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>

#include "bench_engine.h"
#include "engine/engine.h"
#include "gpu/device.h"
#include "graph/node.h"
#include "tracking/roto.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {
double ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

// A wobbly closed outline of smooth points, each tangent a sixth of its neighbours' chord.
GMask wobbly(int count) {
  GMask m;
  m.shapeClosed = true;
  m.params = {{"feather", 0.35}, {"invert", 0}};
  for (int i = 0; i < count; ++i) {
    const double a = 2 * std::numbers::pi * i / count, r = 0.3 + 0.05 * std::sin(7 * a);
    m.shape.push_back({{0.5 + r * std::cos(a) * 0.6, 0.5 + r * std::sin(a)}, {}, {}});
  }
  for (int i = 0; i < count; ++i) {
    const Point prev = m.shape[(i + count - 1) % count].p, next = m.shape[(i + 1) % count].p;
    const Point t{(next.x - prev.x) / 6, (next.y - prev.y) / 6};
    m.shape[i].outT = t;
    m.shape[i].inT = {-t.x, -t.y};
  }
  return m;
}

const char* kPeer = R"PY(
import sys, time, numpy as np, cv2
W, H, frames, feather, path = int(sys.argv[1]), int(sys.argv[2]), int(sys.argv[3]), float(sys.argv[4]), sys.argv[5]
pts = np.loadtxt(path, dtype=np.float64).reshape(-1, 2)
fixed = np.round(pts * 16).astype(np.int32).reshape(-1, 1, 2)  # 4 bits of sub-pixel precision
def draw():
    inside = np.zeros((H, W), np.uint8)
    cv2.fillPoly(inside, [fixed], 255, cv2.LINE_AA, 4)
    d = cv2.distanceTransform(255 - (inside > 127).astype(np.uint8) * 255, cv2.DIST_L2, 5)
    t = np.clip(d / feather, 0, 1)
    f = 1 - t * t * (3 - 2 * t)
    return np.maximum(inside.astype(np.float32) / 255, f).astype(np.float16)
draw()
t0 = time.perf_counter()
for _ in range(frames): draw()
print("%.2f" % ((time.perf_counter() - t0) * 1000 / frames))
)PY";
}  // namespace

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-mask-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  auto engine = bench::makeEngine(dir);
  if (!engine) return 1;
  std::printf("device: %s\n", engine->deviceDescription().c_str());
  std::ofstream(dir / "peer.py") << kPeer;

  const GMask mask = wobbly(100);
  const std::vector<Point> outline = Roto::flatten(mask.shape, true, 10);
  std::printf("outline: 100 points, %zu vertices flattened, feather 0.35 (28 px at full size)\n", outline.size());
  for (auto [W, H] : {std::pair{1920, 1080}, std::pair{4096, 2160}}) {
    engine->setComp(W, H, true);
    Node node(NodeKind::mask());
    node.maskLayers = {mask};
    engine->evaluate({node}, {}, 0);  // pool textures and pipeline warm
    const auto t0 = Clock::now();
    for (int f = 0; f < frames; ++f) engine->evaluate({node}, {}, float(f));
    const double ours = ms(Clock::now() - t0) / frames;
    Node round(NodeKind::mask());  // the same pass through the engine for a soft ellipse: the floor
    GMask soft;
    soft.params = {{"feather", 0.35}};
    soft.ellipse = true;
    round.maskLayers = {soft};
    engine->evaluate({round}, {}, 0);
    const auto t1 = Clock::now();
    for (int f = 0; f < frames; ++f) engine->evaluate({round}, {}, float(f));
    const double ellipse = ms(Clock::now() - t1) / frames;

    std::ofstream pts(dir / "outline.txt");
    for (const Point& p : outline) pts << p.x * W << " " << p.y * H << "\n";
    pts.close();
    const std::string command = "/usr/bin/python3 " + (dir / "peer.py").string() + " " + std::to_string(W) + " " +
                                std::to_string(H) + " " + std::to_string(frames) + " 28 " + (dir / "outline.txt").string();
    double peer = -1;
    if (FILE* p = popen(command.c_str(), "r")) {
      if (std::fscanf(p, "%lf", &peer) != 1) peer = -1;
      pclose(p);
    }
    std::printf("%dx%d: ellipse %.1f ms/frame; Bézier ours %.1f ms/frame | OpenCV fillPoly AA + distance transform %.1f ms/frame | ratio %.2f\n", W, H,
                ellipse, ours, peer, peer > 0 ? ours / peer : 0.0);
  }
  fs::remove_all(dir);
  return 0;
}
