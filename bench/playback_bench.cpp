// Playback of a 1080p clip through media → colour → blur → output at half preview: the rate of
// the first pass (every frame decoded, evaluated and cached), next to the ffmpeg program doing a
// comparable chain (decode, half size, a colour curve, a Gaussian blur) in the same run.
//
//   build/bench/playback_bench [frames]     (default 50)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "bench_clips.h"
#include "chain_model.h"
#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;
using bench::Clock;
using bench::seconds;

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(10, std::atoi(argv[1])) : 50;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-play-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const fs::path clip = dir / "clip.mp4";
  if (!bench::writeHdClip(clip, frames, bench::kH264Veryfast)) return std::fprintf(stderr, "could not write the clip\n"), 1;

  auto clock = std::make_shared<ManualScheduler>();
  auto chain = bench::colourBlurChain(clip, dir, clock);
  if (!chain) return 1;
  AppModel& m = *chain->m;
  m.setParams(chain->color, {{"exposure", 0.3}});
  m.select(std::nullopt);
  clock->runAll();

  auto t0 = Clock::now();
  m.startPlayback();
  clock->runAll();  // the cache jobs follow one another until every frame is in
  const double fill = seconds(t0);
  const std::size_t cached = m._cachedFrames.size();
  std::printf("%s, on %ld cores; %d frames of 1920x1080, half preview, cache frames %dx%d\n",
              m.engine->deviceDescription().c_str(), sysconf(_SC_NPROCESSORS_ONLN), frames, m.play->cacheW,
              m.play->cacheH);
  std::printf("first pass (decode + evaluate + cache): %.1f fps (%zu frames in %.2f s)\n", cached / fill, cached, fill);

  const double peer = bench::peerChainSeconds(clip);
  if (peer < 0) std::printf("ffmpeg peer failed\n");
  else std::printf("ffmpeg peer (decode, half size, eq, gblur, to RGBA): %.1f fps\n", frames / peer);
  m.stopPlayback();
  fs::remove_all(dir);
  return 0;
}
