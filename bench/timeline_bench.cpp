// A three-layer 1080p timeline: a clip at the bottom, its world with a colour grade at half
// opacity over it, and a still multiplied on top. Measures the first pass of playback at half
// preview (every frame rendered into the play cache) and the export of the film at full size in
// ProRes 422 HQ, next to the ffmpeg program doing the same overlay into the same codec.
//
//   build/bench/timeline_bench [frames]     (default 50)
#include <cstdio>
#include <unistd.h>

#include "bench_clips.h"
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
  const fs::path dir = fs::temp_directory_path() / ("ombrik-timeline-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const fs::path clip = dir / "clip.mp4", still = dir / "still.png", peerOut = dir / "peer.mov";
  if (!bench::writeHdClip(clip, frames, bench::kH264Veryfast) ||
      std::system(("ffmpeg -v error -y -f lavfi -i color=c=0xE0C0A0:s=1920x1080 -frames:v 1 '" + still.string() + "'").c_str()))
    return std::fprintf(stderr, "could not write the sources\n"), 1;

  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(AppModel::Options{.blankStart = true, .withEngine = true, .scheduler = clock,
                               .defaultsFile = (dir / "d.conf").string(), .dataDir = dir / "data"});
  if (!m.engine || !m.importURL(still) || !m.importURL(clip)) return std::fprintf(stderr, "%s\n", m._status.c_str()), 1;
  const Uuid stillID = m._media[0].id, clipID = m._media[1].id;
  const Uuid world = m.makeWorld(clipID, "Grade");
  m.newTimeline();
  m.addLayer(LayerSource::media(stillID), 0);
  m.addLayer(LayerSource::batch(world), 0);
  m.addLayer(LayerSource::media(clipID), 0);
  Timeline& t = *m.tl.current();
  for (auto& l : t.layers) l.length = frames;
  t.layers[0].blend = int(LayerBlend::multiply);
  t.layers[1].opacity = 0.5;
  m.tl.tlSelection = {t.layers[1].id};
  m.addLayerEffect(NodeKind::color());
  m.setPreviewScale(0.5);
  clock->runAll();  // the first scrub and its neighbours

  // First pass of playback: from an empty cache until every frame is in. Nothing runs between the
  // emptying and the start, or the neighbouring frames would fill it while stopped.
  m._currentFrame = 0;
  m.invalidatePlayCache();
  auto t0 = Clock::now();
  m.startPlayback();
  clock->runAll();
  const double fill = seconds(t0);
  const std::size_t cached = m._cachedFrames.size();
  m.stopPlayback();
  std::printf("%s, on %ld cores; %d frames of 1920x1080, 3 layers\n", m.engine->deviceDescription().c_str(),
              sysconf(_SC_NPROCESSORS_ONLN), frames);
  std::printf("playback first pass at half preview: %.1f fps (%zu frames in %.2f s, cache %dx%d)\n", cached / fill, cached,
              fill, m.play->cacheW, m.play->cacheH);

  // The film at full size.
  t0 = Clock::now();
  if (!m.exportTimelineMovie(t.id, dir / "film.mov")) return std::fprintf(stderr, "%s\n", m._status.c_str()), 1;
  while (m.rendering) clock->runAll();
  const double ours = frames / seconds(t0);
  std::printf("export to ProRes 422 HQ: %.1f fps (%s)\n", ours, m._status.c_str());

  // The same overlay with ffmpeg: the graded clip at half over the clip, the still multiplied.
  t0 = Clock::now();
  const std::string peer = "ffmpeg -v error -y -i '" + clip.string() + "' -loop 1 -i '" + still.string() +
                           "' -filter_complex \"[0]split[a][b];[b]eq=brightness=0.05[g];[a][g]blend=all_mode=normal:"
                           "all_opacity=0.5[m];[m][1]blend=all_mode=multiply:shortest=1\" -frames:v " +
                           std::to_string(frames) + " -c:v prores_ks -profile:v 3 '" + peerOut.string() + "'";
  const int rc = std::system(peer.c_str());
  const double theirs = frames / seconds(t0);
  if (rc == 0) std::printf("ffmpeg overlay to ProRes 422 HQ: %.1f fps · ratio ours / ffmpeg %.2f\n", theirs, ours / theirs);
  else std::printf("ffmpeg peer failed\n");
  fs::remove_all(dir);
  return 0;
}
