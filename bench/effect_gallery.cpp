// Renders every built-in kind at its defaults on the 1080p sample picture: one PNG per kind and
// a contact sheet of them all, and times the whole catalogue.
//
//   build/bench/effect_gallery [folder]      (default: ./gallery; OMBRIK_GPU=cpu forces lavapipe)
#include <OpenImageIO/imageio.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "engine/source_picture.h"
#include "gpu/device.h"
#include "graph/node.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

int main(int argc, char** argv) {
  const fs::path folder = argc > 1 ? fs::path(argv[1]) : fs::path("gallery");
  fs::create_directories(folder);
  std::string error;
  auto engine = Engine::create(&error);
  if (!engine) return std::fprintf(stderr, "no engine: %s\n", error.c_str()), 1;
  std::printf("device: %s\n", engine->deviceDescription().c_str());
  engine->setComp(1920, 1080, true);
  const Uuid sample = Uuid::generate();
  engine->addSource(SampleImage::make(), sample);

  const int thumbW = 320, thumbH = 180, columns = 10;
  const int count = int(NodeKind::all().size());
  const int rows = (count + columns - 1) / columns;
  std::vector<std::uint8_t> sheet(std::size_t(columns) * thumbW * rows * thumbH * 4, 24);
  std::vector<std::string> without;
  double total = 0, slowest = 0;
  std::string slowestID;
  int index = 0;
  for (const auto& kind : NodeKind::all()) {
    Node media(NodeKind::media());
    media.mediaID = sample;
    Node n(kind);
    if (kind->id == "media") n.mediaID = sample;
    const std::vector<Edge> edges{{Uuid::generate(), media.id, n.id, 0, 0}};
    engine->evaluate({media, n}, edges, 1.0f);  // first run: pool textures
    const auto t0 = Clock::now();
    engine->evaluate({media, n}, edges, 1.0f);
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    total += ms;
    if (ms > slowest) slowest = ms, slowestID = kind->id;
    auto it = engine->outputs.find(n.id);
    const int cell = index++;
    if (it == engine->outputs.end()) {
      without.push_back(kind->id);
      continue;
    }
    engine->writePreview(it->second, folder / (kind->category.raw + " - " + kind->id + ".png"), 1920);
    auto thumb = engine->thumbnail(it->second, thumbW);
    if (!thumb) continue;
    const int cx = (cell % columns) * thumbW, cy = (cell / columns) * thumbH;
    for (int y = 0; y < std::min(thumb->height, thumbH); ++y)
      for (int x = 0; x < std::min(thumb->width, thumbW); ++x)
        for (int c = 0; c < 4; ++c)
          sheet[((std::size_t(cy + y) * columns * thumbW) + cx + x) * 4 + c] =
              c == 3 ? 255 : (*thumb->rgba)[(std::size_t(y) * thumb->width + x) * 4 + c];
  }
  auto out = OIIO::ImageOutput::create("png");
  OIIO::ImageSpec spec(columns * thumbW, rows * thumbH, 4, OIIO::TypeDesc::UINT8);
  const fs::path sheetPath = folder / "catalogue.png";
  if (out && out->open(sheetPath.string(), spec)) {
    out->write_image(OIIO::TypeDesc::UINT8, sheet.data());
    out->close();
  }
  std::printf("%d kinds at 1920x1080: %.0f ms in all (%.1f ms each on average), slowest %s at %.0f ms\n", count, total,
              total / count, slowestID.c_str(), slowest);
  std::printf("no picture (their features come later):");
  for (const auto& id : without) std::printf(" %s", id.c_str());
  std::printf("\npictures in %s, contact sheet %s (kinds in catalogue order, %d a row)\n", fs::absolute(folder).c_str(),
              fs::absolute(sheetPath).c_str(), columns);
  return 0;
}
