// Rendering the reference graph (1080p still -> colour -> glow -> grain -> transform -> output) to
// a movie: frames per second of the whole render (evaluate, read back, encode) and of the encode
// alone, to ProRes 422 HQ and to H.264; then the ffmpeg program encoding the same frames from a
// raw rgba64le file with the same encoders and settings, in the same run.
//
//   build/bench/movie_encode_bench [frames]      (OMBRIK_GPU=cpu forces lavapipe)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench_engine.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "gpu/device.h"
#include "graph/node.h"
#include "media/movie_writer.h"
#include "reference_graph.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {
constexpr int kW = 1920, kH = 1080;
double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

struct Target {
  const char* label;
  MovieCodec codec;
  const char* file;
  const char* peerCodec;  // the ffmpeg program's options for the same encoder and settings
};
const Target kTargets[] = {
    {"ProRes 422 HQ", MovieCodec::prores422hq, "render.mov", "-c:v prores_ks -profile:v 3 -pix_fmt yuv422p10le"},
    {"H.264 crf 18", MovieCodec::h264, "render.mp4", "-c:v libx264 -crf 18 -preset medium -pix_fmt yuv420p"},
};
}  // namespace

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 50;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-movie-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);

  std::string error;

  auto engine = bench::makeEngine(dir);

  if (!engine) return 1;
  std::printf("device: %s; %d frames at %dx%d\n", engine->deviceDescription().c_str(), frames, kW, kH);

  const bench::ReferenceGraph graph = bench::referenceGraph(*engine, kW, kH);
  const auto& nodes = graph.nodes;
  const auto& edges = graph.edges;
  auto renderFrame = [&](int f) {
    engine->evaluate(nodes, edges, f / 25.0f);
    return engine->readPixels(engine->outputs[graph.output]);
  };

  // The frames once, untimed (this also warms the pool): kept in memory for the encode alone,
  // and as the raw file the peer reads.
  const fs::path raw = dir / "frames.rgba64le";
  std::vector<std::vector<float>> rendered;
  {
    std::ofstream out(raw, std::ios::binary);
    std::vector<std::uint16_t> line;
    for (int f = 0; f < frames; ++f) {
      rendered.push_back(renderFrame(f));
      const std::vector<float>& px = rendered.back();
      if (px.size() != std::size_t(kW) * kH * 4) return std::fprintf(stderr, "no output picture\n"), 1;
      line.resize(px.size());
      for (std::size_t i = 0; i < px.size(); ++i)
        line[i] = std::uint16_t(std::clamp(px[i], 0.0f, 1.0f) * 65535.0f + 0.5f);
      out.write(reinterpret_cast<const char*>(line.data()), std::streamsize(line.size() * 2));
    }
  }

  for (const Target& t : kTargets) {
    std::printf("\n%s\n", t.label);
    // The whole render: evaluate, read back, encode, finish.
    auto writer = MovieWriter::open(dir / t.file, {t.codec, kW, kH, 25, 18}, &error);
    if (!writer) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    Clock::time_point t0 = Clock::now();
    for (int f = 0; f < frames; ++f)
      if (!writer->append(renderFrame(f).data(), &error)) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    if (!writer->finish(&error)) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    const double render = seconds(Clock::now() - t0);

    // The encode alone, from the same frames held in memory.
    writer = MovieWriter::open(dir / t.file, {t.codec, kW, kH, 25, 18}, &error);
    if (!writer) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    t0 = Clock::now();
    for (const std::vector<float>& px : rendered)
      if (!writer->append(px.data(), &error)) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    if (!writer->finish(&error)) return std::fprintf(stderr, "%s\n", error.c_str()), 1;
    const double encode = seconds(Clock::now() - t0);

    // The peer: the ffmpeg program, same frames, same encoder and settings, same threads.
    const std::string cmd = "ffmpeg -v error -nostdin -y -f rawvideo -pix_fmt rgba64le -s " + std::to_string(kW) + "x" +
                            std::to_string(kH) + " -r 25 -i '" + raw.string() + "' " + t.peerCodec +
                            " -color_primaries bt709 -color_trc bt709 -colorspace bt709 -color_range tv '" +
                            (dir / ("peer-" + std::string(t.file))).string() + "'";
    t0 = Clock::now();
    const int rc = std::system(cmd.c_str());
    const double peer = seconds(Clock::now() - t0);
    const auto size = [&](const fs::path& p) { return fs::file_size(p) / 1e6; };

    std::printf("  render (evaluate + read back + encode): %6.2f fps\n", frames / render);
    std::printf("  encode alone:                          %6.2f fps  (%.1f MB)\n", frames / encode, size(dir / t.file));
    if (rc != 0) {
      std::printf("  ffmpeg: failed (%d)\n", rc);
      continue;
    }
    std::printf("  ffmpeg program, raw file to movie:     %6.2f fps  (%.1f MB)\n", frames / peer,
                size(dir / ("peer-" + std::string(t.file))));
    std::printf("  ratio encode / ffmpeg: %.2f   render / ffmpeg: %.2f  (fps, higher is faster)\n",
                peer / encode, peer / render);
  }
  fs::remove_all(dir);
  return 0;
}
