// The reference graph, 1080p still -> colour -> glow -> grain -> transform -> output, timed per
// frame on the engine's device, with cold and warm start; then ffmpeg doing comparable work on
// the same picture in the same run (colour curve, screen-blended blur, noise, a resampling
// rotate), so the two figures can be compared.
//
//   build/bench/reference_graph_bench [frames]      (OMBRIK_GPU=cpu forces lavapipe)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "engine/engine.h"
#include "engine/source_picture.h"
#include "gpu/device.h"
#include "graph/node.h"
#include "reference_graph.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

static double ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);

  // Cold start: a device and every kernel compiled with an empty cache; warm: from the cache.
  Engine::Options options{dir / "ShaderCache", dir / "shader_error.log"};
  std::string error;
  auto t0 = Clock::now();
  auto device = gpu::Device::create(gpu::Device::preferenceFromEnvironment(), &error);
  if (!device) return std::fprintf(stderr, "no device: %s\n", error.c_str()), 1;
  auto engine = Engine::create(std::move(device), options, &error);
  if (!engine) return std::fprintf(stderr, "no engine: %s\n", error.c_str()), 1;
  const double cold = ms(Clock::now() - t0);
  engine.reset();
  t0 = Clock::now();
  engine = Engine::create(gpu::Device::create(gpu::Device::preferenceFromEnvironment(), &error), options, &error);
  const double warm = ms(Clock::now() - t0);
  std::printf("device: %s\n", engine->deviceDescription().c_str());
  std::printf("start: cold %.0f ms (compiling every kernel), warm %.0f ms (SPIR-V from the cache)\n", cold, warm);

  const SourcePicture picture = SampleImage::make(1920, 1080);  // the peer's input below
  const bench::ReferenceGraph reference = bench::referenceGraph(*engine, 1920, 1080);
  const auto& nodes = reference.nodes;
  const auto& edges = reference.edges;
  t0 = Clock::now();
  engine->evaluate(nodes, edges, 0);  // first frame: conform and pool textures
  const double first = ms(Clock::now() - t0);
  t0 = Clock::now();
  for (int f = 1; f <= frames; ++f) engine->evaluate(nodes, edges, f / 25.0f);
  const double perFrame = ms(Clock::now() - t0) / frames;
  std::printf("engine: first frame %.1f ms, then %.1f ms per frame over %d frames (%.1f fps)\n", first, perFrame,
              frames, 1000.0 / perFrame);
  const auto fusion = engine->lastFusion();
  std::printf("  %d passes a frame, %d of them merged into %d kernels (OMBRIK_FUSE=0: one by one)\n", fusion.passes,
              fusion.merged, fusion.runs);
  // Lean, as the viewer and playback evaluate: only the output's picture is kept, so what lies
  // between merged passes stays in registers.
  engine->leanEval = true;
  engine->evaluate(nodes, edges, 0);
  t0 = Clock::now();
  for (int f = 1; f <= frames; ++f) engine->evaluate(nodes, edges, f / 25.0f);
  const double lean = ms(Clock::now() - t0) / frames;
  engine->leanEval = false;
  std::printf("engine, lean evaluation: %.1f ms per frame (%.1f fps)\n", lean, 1000.0 / lean);

  // The peer: ffmpeg on the same picture, one thread per core like the CPU driver.
  const fs::path png = dir / "sample.png";
  engine->export_(engine->conformed(picture), png);
  const std::string graph =
      "[0:v]format=gbrpf32le,eq=gamma=1.06:saturation=0.92:brightness=0.02,split[a][b];"
      "[b]curves=all='0/0 0.78/0 1/0.7',gblur=sigma=15.6[g];[a][g]blend=all_mode=screen,"
      "noise=alls=6:allf=t,rotate=3*PI/180:ow=iw:oh=ih,scale=1920:1080[out]";
  const std::string cmd = "ffmpeg -v error -nostdin -loop 1 -i '" + png.string() + "' -frames:v " +
                          std::to_string(frames) + " -filter_complex \"" + graph + "\" -map '[out]' -f null - 2>&1";
  t0 = Clock::now();
  const int rc = std::system(cmd.c_str());
  const double peer = ms(Clock::now() - t0) / frames;
  if (rc != 0) std::printf("ffmpeg: failed (%d)\n", rc);
  else
    std::printf("ffmpeg: %.1f ms per frame over %d frames (float planar RGB; includes the PNG decode)\n", peer, frames);
  if (rc == 0) std::printf("ratio engine / ffmpeg: %.2f (lean %.2f)\n", perFrame / peer, lean / peer);
  fs::remove_all(dir);
  return 0;
}
