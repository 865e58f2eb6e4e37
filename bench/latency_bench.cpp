// From a parameter change to the new picture: a 1080p clip through media → colour → blur → output
// at half preview, the exposure moved as a slider would move it, and the time until the model's
// next finished render. The peer is the ffmpeg program making one picture of a comparable chain
// from the same clip (its start included, as a cold reader would have it), in the same run.
//
//   build/bench/latency_bench [changes]     (default 20)
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

#include "bench_clips.h"
#include "chain_model.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;
using bench::Clock;
using bench::seconds;

namespace {

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int changes = argc > 1 ? std::max(5, std::atoi(argv[1])) : 20;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-latency-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const fs::path clip = dir / "clip.mp4";
  if (!bench::writeHdClip(clip, 10, bench::kH264Veryfast)) return std::fprintf(stderr, "could not write the clip\n"), 1;

  auto clock = std::make_shared<ManualScheduler>();
  auto chain = bench::colourBlurChain(clip, dir, clock);
  if (!chain) return 1;
  AppModel& m = *chain->m;
  const Uuid color = chain->color;
  m.select(color);
  m.recomputeComp();
  for (int i = 0; i < 200; ++i) {  // the first picture in, everything compiled and warm
    clock->waitForThreads(0.02);
    clock->advance(1);
    clock->runAll();
  }

  // Each change as a slider makes it: the value stored, then the main loop's next turn renders.
  std::vector<double> lean, full;
  for (int i = 0; i < changes; ++i) {
    const int before = m._frameID;
    const auto t0 = Clock::now();
    m.setParams(color, {{"exposure", 0.1 * (i % 7)}});
    clock->runAll();  // the lean render the change asks for
    if (m._frameID == before) return std::fprintf(stderr, "no picture after a change\n"), 1;
    lean.push_back(seconds(t0));
    const auto t1 = Clock::now();
    clock->advance(1);  // the full evaluation that follows a quiet moment
    clock->runAll();
    full.push_back(seconds(t1));
  }
  std::printf("%s, on %ld cores; 1920x1080 clip, half preview (%dx%d), media -> colour -> blur -> output\n",
              m.engine->deviceDescription().c_str(), sysconf(_SC_NPROCESSORS_ONLN), m.engine->compW, m.engine->compH);
  std::printf("change to picture: median %.1f ms, worst %.1f ms over %d changes; the full pass after: median %.1f ms\n",
              median(lean) * 1000, *std::max_element(lean.begin(), lean.end()) * 1000, changes, median(full) * 1000);

  const auto t0 = Clock::now();
  const int rc = std::system(("ffmpeg -v error -i '" + clip.string() +
                              "' -frames:v 1 -vf scale=960:540,eq=brightness=0.1,gblur=sigma=4 -pix_fmt rgba -f null -")
                                 .c_str());
  if (rc != 0) return std::printf("ffmpeg peer failed\n"), 0;
  const double peer = seconds(t0);
  std::printf("ffmpeg, one picture of the same clip through scale, eq, gblur: %.1f ms; ratio ours / ffmpeg %.2f\n",
              peer * 1000, median(lean) / peer);
  std::error_code ec;
  fs::remove_all(dir, ec);
  return 0;
}
