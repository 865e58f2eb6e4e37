// Groups cost per frame: a 300-node chain folded into 30 groups nested inside each other,
// flattened and evaluated, against the same chain flat, in the same run on the same device.
//
//   build/bench/group_bench [frames] [width]      (OMBRIK_GPU=cpu forces lavapipe)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench_engine.h"
#include "engine/source_picture.h"
#include "graph/node.h"
#include "groups/group_flatten.h"
#include "groups/group_fold.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

int main(int argc, char** argv) {
  auto ms = [](Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); };
  const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
  const int width = argc > 2 ? std::max(16, std::atoi(argv[2])) : 480;
  const int height = width * 9 / 16;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-group-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  auto engine = bench::makeEngine(dir);
  if (!engine) return 1;
  std::printf("device: %s, comp %dx%d\n", engine->deviceDescription().c_str(), width, height);
  engine->setComp(width, height, true);

  // media → 298 light colour nodes → output.
  GraphSnapshot flat;
  const char* kinds[] = {"color", "invert", "levels", "contrast"};
  std::vector<Uuid> chain;
  for (int i = 0; i < 300; ++i) {
    const char* kind = i == 0 ? "media" : i == 299 ? "output" : kinds[i % 4];
    Node n(*NodeKind::find(kind));
    if (i == 0) n.mediaID = Uuid::generate();
    if (std::string(kind) == "invert") n.params["mix"] = 0.01;
    flat.positions[n.id] = {double(i) * 100, 0};
    if (!chain.empty()) flat.edges.push_back(Edge{Uuid::generate(), chain.back(), n.id, 0, 0});
    chain.push_back(n.id);
    flat.nodes.push_back(std::move(n));
  }
  engine->addSource(SampleImage::make(width, height), *flat.nodes.front().mediaID);

  // Thirty groups, each holding the one before it and the next nodes of the chain.
  GraphSnapshot grouped = flat;
  std::optional<Uuid> inner;
  for (int g = 0; g < 30; ++g) {
    FoldRequest request;
    request.name = "G";  // appended: GCC 12 misreads "G" + string as an overlapping copy
    request.name += std::to_string(g);
    if (inner) request.ids.insert(*inner);
    for (int i = 1 + g * 298 / 30; i < 1 + (g + 1) * 298 / 30; ++i) request.ids.insert(chain[std::size_t(i)]);
    const Folded f = foldGroup(grouped, request);
    if (!f.id) return std::fprintf(stderr, "fold %d refused: %s\n", g, f.refusal.c_str()), 1;
    inner = f.id;
  }
  std::size_t innerCount = 0;
  for (const auto& n : grouped.nodes)
    if (n.group) innerCount += allGroupIDs(*n.group).size();
  std::printf("grouped: %zu top-level nodes, %zu inside groups\n", grouped.nodes.size(), innerCount);

  auto t0 = Clock::now();
  std::size_t flatNodes = 0;
  for (int f = 0; f < frames * 10; ++f) flatNodes = flattenGroups(grouped.nodes, grouped.edges).nodes.size();
  const double flattenMs = ms(Clock::now() - t0) / (frames * 10);
  std::printf("flatten alone: %.3f ms per frame (%zu nodes out)\n", flattenMs, flatNodes);

  auto timeEval = [&](const GraphSnapshot& g) {
    engine->evaluate(g.nodes, g.edges, 0);  // pool textures and pipelines
    const auto start = Clock::now();
    for (int f = 1; f <= frames; ++f) engine->evaluate(g.nodes, g.edges, float(f) / 25.0f);
    return ms(Clock::now() - start) / frames;
  };
  // Interleaved, so that neither order nor the machine's drift favours one.
  double groupedMs = 0, flatMs = 0;
  bool same = true;
  for (int round = 0; round < 2; ++round) {
    groupedMs += timeEval(grouped) / 2;
    const std::vector<float> groupedPicture = engine->readPixels(engine->outputs.at(chain.back()));
    flatMs += timeEval(flat) / 2;
    same = same && engine->readPixels(engine->outputs.at(chain.back())) == groupedPicture;
  }
  std::printf("same output picture grouped and flat: %s\n", same ? "yes" : "NO");
  std::printf("evaluate flat: %.2f ms per frame\n", flatMs);
  std::printf("evaluate grouped (flatten included): %.2f ms per frame\n", groupedMs);
  std::printf("ratio grouped / flat: %.3f (flatten is %.1f %% of the grouped frame)\n", groupedMs / flatMs,
              100 * flattenMs / groupedMs);
  fs::remove_all(dir);
  return 0;
}
