// Decoding 1080p clips: frames per second read in order through FrameReader (conversion to half
// floats included), next to the ffmpeg program decoding the same file to nothing, and the time of
// a random seek. The clips are written first by the ffmpeg program.
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
  std::printf("%d frames of 1920x1080, on %ld cores\n", frames, sysconf(_SC_NPROCESSORS_ONLN));
  for (const auto& c : clips) {
    const fs::path file = dir / c.name;
    if (!bench::writeHdClip(file, frames, c.codec)) return std::fprintf(stderr, "could not write %s\n", c.name), 1;

    auto reader = FrameReader::open(file);
    if (!reader) return std::fprintf(stderr, "could not open %s\n", c.name), 1;
    auto t0 = Clock::now();
    for (int f = 0; f < frames; ++f)
      if (!reader->read(f)) return std::fprintf(stderr, "frame %d missing\n", f), 1;
    const double ours = frames / seconds(t0);

    t0 = Clock::now();
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
    std::printf("%-10s ours %.1f fps (to half floats) | ffmpeg -f null %.1f fps, with rgba64 conversion %.1f fps | random seek %.0f ms\n",
                c.name, ours, peer, peerRgb, seek);
  }
  fs::remove_all(dir);
  return 0;
}
