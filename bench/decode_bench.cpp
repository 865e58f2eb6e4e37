// Decoding 1080p clips: frames per second read in order into the engine's textures, through the
// decoder's planes converted on the device and through the CPU conversion to half floats, next to
// the ffmpeg program decoding the same file to nothing and to 16-bit RGB, and the time of a random
// seek. The clips are written first by the ffmpeg program.
//
//   build/bench/decode_bench [frames]     (default 100)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <unistd.h>

#include "bench_clips.h"
#include "engine/engine.h"
#include "media/frame_reader.h"

using namespace ombrik;
namespace fs = std::filesystem;
using bench::Clock;
using bench::seconds;

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(10, std::atoi(argv[1])) : 100;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-decode-" + std::to_string(getpid()));
  fs::create_directories(dir);
  struct Clip {
    const char* name;
    const char* codec;
  } clips[] = {{"h264.mp4", "-c:v libx264 -preset veryfast -g 25 -bf 2 -pix_fmt yuv420p"},
               {"prores.mov", "-c:v prores_ks -profile:v 3 -pix_fmt yuv422p10le"}};
  std::string error;
  auto engine = Engine::create(&error);
  if (!engine) return std::fprintf(stderr, "no engine: %s\n", error.c_str()), 1;
  engine->setComp(1920, 1080, true);
  std::printf("%d frames of 1920x1080, on %ld cores, %s\n", frames, sysconf(_SC_NPROCESSORS_ONLN),
              engine->deviceDescription().c_str());
  for (const auto& c : clips) {
    const fs::path file = dir / c.name;
    if (!bench::writeHdClip(file, frames, c.codec)) return std::fprintf(stderr, "could not write %s\n", c.name), 1;

    // Into a 1080p texture of the engine, as playback and renders bring frames in.
    auto intoEngine = [&](bool planar) {
      auto reader = FrameReader::open(file);
      if (!reader) return -1.0;
      reader->setPlanar(planar);
      const Uuid id = Uuid::generate();
      auto t0 = Clock::now();
      for (int f = 0; f < frames; ++f) {
        auto picture = reader->read(f);
        if (!picture) return -1.0;
        engine->addSource(*picture, id);
        if (!engine->conform(id)) return -1.0;
      }
      return frames / seconds(t0);
    };
    const double ours = intoEngine(true), cpuPath = intoEngine(false);
    if (ours < 0 || cpuPath < 0) return std::fprintf(stderr, "could not read %s\n", c.name), 1;
    auto reader = FrameReader::open(file);

    auto t0 = Clock::now();
    std::system(("ffmpeg -v error -i '" + file.string() + "' -f null -").c_str());
    const double peer = frames / seconds(t0);
    t0 = Clock::now();
    std::system(("ffmpeg -v error -i '" + file.string() + "' -pix_fmt rgba64le -f null -").c_str());
    const double peerRgb = frames / seconds(t0);

    std::mt19937 rng(3);
    const int seeksN = 20;
    t0 = Clock::now();
    for (int i = 0; i < seeksN; ++i) reader->read(int(rng() % frames));
    const double seek = seconds(t0) / seeksN * 1000;
    std::printf("%-10s into engine textures %.1f fps (planes on the device), %.1f fps (CPU to half floats) | "
                "ffmpeg -f null %.1f fps, with rgba64 conversion %.1f fps | ratio %.2f | random seek %.0f ms\n",
                c.name, ours, cpuPath, peer, peerRgb, ours / peerRgb, seek);
  }
  fs::remove_all(dir);
  return 0;
}
