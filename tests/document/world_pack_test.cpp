// World packs: a world gathered with its rush, LUT and computed results, moved away from
// everything it came from, and opened in another project renders the same frame; the plan's
// naming and refusals; packs that can't be read change nothing.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <fstream>

#include "document/world_pack.h"
#include "engine/engine.h"
#include "temp_model.h"

using namespace ombrik;
namespace fs = std::filesystem;
namespace wp = ombrik::worldpack;

namespace {

// A 24x16 gradient that no two pixels share, as an 8-bit PNG.
fs::path writeRush(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::vector<unsigned char> px(24 * 16 * 3);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 24; ++x) {
      unsigned char* p = &px[(y * 24 + x) * 3];
      p[0] = static_cast<unsigned char>(x * 10);
      p[1] = static_cast<unsigned char>(y * 15);
      p[2] = static_cast<unsigned char>(200 - x * 4 - y * 3);
    }
  auto out = OIIO::ImageOutput::create(path.string());
  EXPECT_TRUE(out && out->open(path.string(), OIIO::ImageSpec(24, 16, 3, OIIO::TypeDesc::UINT8)) &&
              out->write_image(OIIO::TypeDesc::UINT8, px.data()) && out->close());
  return path;
}

// A cube that swaps red and blue and halves green: far from the identity, exact under trilinear lookup.
fs::path writeCube(const fs::path& path) {
  fs::create_directories(path.parent_path());
  std::ofstream out(path);
  out << "LUT_3D_SIZE 2\n";
  for (int b = 0; b < 2; ++b)
    for (int g = 0; g < 2; ++g)
      for (int r = 0; r < 2; ++r) out << b << ' ' << g * 0.5 << ' ' << r << '\n';
  return path;
}

void writeText(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

// Runs the model's clock until the copy of a pack has reported (20 s at most).
bool waitForPack(ManualScheduler& clock, const AppModel& m) { return test::waitWhile(clock, [&] { return m.packing(); }); }

// The open world's output as delivered, after a full render.
std::vector<float> deliveredFrame(test::ScriptedDesk& d) {
  AppModel& m = *d.m;
  m.requestRender();
  d.clock->runAll();
  d.clock->advance(1);
  const auto out = m.outputNode();
  if (!out || !m.engine->outputs.count(*out)) return {};
  return m.engine->readPixels(m.deliveredPicture(m.engine->outputs.at(*out)));
}

std::set<Uuid> nodeSet(const Batch& b) {
  std::set<Uuid> ids;
  for (const auto& n : b.nodes) ids.insert(n.id);
  return ids;
}

}  // namespace

TEST(WorldPack, APackMovedElsewhereOpensInAnotherProjectWithTheSameFrame) {
  test::ScriptedDesk a;
  AppModel& m = *a.m;
  ASSERT_TRUE(m.engine) << m._status;
  const auto world = m.createWorld(writeRush(a.dir.path / "tournage" / "plan.png"));
  ASSERT_TRUE(world);
  m.enterWorld(*world);
  const Uuid blur = m.addNode(*NodeKind::find("blur"), {200, 0});
  m.setParams(blur, {{"size", 3}});
  m.insert(blur, m._edges.front().id);
  ASSERT_TRUE(m.setWorldLUTFile(*world, writeCube(a.dir.path / "luts" / "chaud.cube"))) << m._status;
  m.toggleWorldLUTRender(*world);
  const auto before = deliveredFrame(a);
  ASSERT_FALSE(before.empty());
  writeText(m.muxFolder(blur) / "f0001.exr", "résultat");
  writeText(m.muxFolder(blur) / "nodecache" / "k", "se recalcule");

  const fs::path pack = a.dir.path / "sortie" / "Plan (Ombrik)";
  std::optional<bool> outcome;
  m.packWorld(*world, pack, [&](bool ok) { outcome = ok; });
  EXPECT_EQ(m._status, "Rassembler « plan » : copie de 3 éléments…");
  ASSERT_TRUE(waitForPack(*a.clock, m));
  ASSERT_EQ(outcome, true) << m._status;
  for (const char* item : {"monde.ombrik", "LISEZ-MOI.txt", "Rushs/plan.png", "LUT/chaud.cube"})
    EXPECT_TRUE(fs::exists(pack / item)) << item;
  EXPECT_TRUE(fs::exists(pack / "Cache" / blur.toString() / "f0001.exr"));
  EXPECT_FALSE(fs::exists(pack / "Cache" / blur.toString() / "nodecache")) << "computed again where it lands";
  EXPECT_NE(slurp(pack / "monde.ombrik").find("\"lut\": \"LUT/chaud.cube\""), std::string::npos);
  EXPECT_EQ(m.currentBatch()->lut, (a.dir.path / "luts" / "chaud.cube").string()) << "packing changes nothing";

  // Everything the world came from goes; only the pack, moved, is left.
  const fs::path moved = a.dir.path / "ailleurs" / "Reçu";
  fs::create_directories(moved.parent_path());
  fs::rename(pack, moved);
  fs::remove_all(a.dir.path / "tournage");
  fs::remove_all(a.dir.path / "luts");

  test::ScriptedDesk b;
  AppModel& n = *b.m;
  const std::size_t worlds = n._batches.size();
  const auto first = n.unpackWorld(moved);
  ASSERT_TRUE(first) << n._status;
  EXPECT_TRUE(n._worldView) << "the map shows it, not opened";
  EXPECT_NE(n._currentBatchID, first);
  const Batch unpacked = *std::find_if(n._batches.begin(), n._batches.end(), [&](const Batch& w) { return w.id == *first; });
  EXPECT_EQ(unpacked.lut, (moved / "LUT" / "chaud.cube").string());
  EXPECT_EQ(unpacked.nodes.size(), 3u);
  EXPECT_TRUE(nodeSet(unpacked).count(blur) == 0) << "fresh node ids";
  n.enterWorld(*first);
  EXPECT_EQ(deliveredFrame(b), before) << "the same frame, LUT at render included";
  const Uuid newBlur = std::find_if(n._nodes.begin(), n._nodes.end(), [](const Node& x) { return x.kind->id == "blur"; })->id;
  EXPECT_EQ(slurp(n.muxFolder(newBlur) / "f0001.exr"), "résultat") << "computed results follow their node";

  // Dropped a second time: a second world with its own ids and a told-apart name; the rush is
  // imported once.
  const std::size_t media0 = n._media.size();
  n.importFromFinder({moved});
  EXPECT_EQ(n._batches.size(), worlds + 2);
  EXPECT_EQ(n._media.size(), media0);
  EXPECT_EQ(n._batches.back().name, "plan (rassemblé)");
  for (const Uuid& id : nodeSet(n._batches.back())) EXPECT_FALSE(nodeSet(n._batches[worlds]).count(id));
}

// The plan alone: names made distinct whatever their case, a library LUT named by its key,
// nothing at all written over an existing folder.
TEST(WorldPack, ThePlanNamesEachRushOnceKeepsLibraryKeysAndNeverOverwrites) {
  TempDir dir;
  Batch world;
  world.id = Uuid::generate();
  world.name = "Scène";
  world.lut = "auto:slog3";
  std::vector<wp::Rush> media;
  for (const char* file : {"A/Clip.png", "B/clip.PNG", "C/clip.png", "D/autre.png"}) {
    media.push_back({Uuid::generate(), file, dir.path / file});
    Node n(NodeKind::media());
    n.mediaID = media.back().id;
    world.nodes.push_back(n);
  }
  world.mediaID = media[2].id;  // the world's own rush comes first
  media.push_back({Uuid::generate(), "généré", std::nullopt});
  world.nodes.push_back(Node(NodeKind::media()));
  world.nodes.back().mediaID = media.back().id;

  std::string status;
  auto p = wp::plan(world, media, dir.path / "Cache", dir.path / "pack", &status);
  ASSERT_TRUE(p);
  std::vector<std::string> targets;
  for (const auto& c : p->copies) targets.push_back(c.to.lexically_relative(dir.path / "pack").generic_string());
  EXPECT_EQ(targets, (std::vector<std::string>{"Rushs/clip.png", "Rushs/Clip-2.png", "Rushs/clip-3.PNG",
                                               "Rushs/autre.png"}));
  EXPECT_EQ(p->rushes, 4u) << "a generated picture has no file to carry";
  const auto pack = wp::decode(p->json);
  ASSERT_TRUE(pack);
  EXPECT_EQ(pack->batch.lut, "auto:slog3");
  EXPECT_EQ(pack->media[1].path, "Rushs/Clip-2.png");

  fs::create_directories(dir.path / "pris");
  EXPECT_FALSE(wp::plan(world, media, dir.path / "Cache", dir.path / "pris", &status));
  EXPECT_EQ(status, "« pris » existe déjà : choisissez un autre nom (rien n'est écrasé).");
  EXPECT_TRUE(fs::is_empty(dir.path / "pris"));
}

// A rush gone before the copy stops it: the pack has no world file. Packs that can't be read and
// packs with a rush missing.
TEST(WorldPack, BrokenPacksAndFailedCopiesAreToldAndChangeNothing) {
  test::ScriptedDesk d;
  AppModel& m = *d.m;
  const fs::path rush = writeRush(d.dir.path / "plan.png");
  const auto world = m.createWorld(rush);
  ASSERT_TRUE(world);
  fs::remove(rush);
  std::optional<bool> outcome;
  m.packWorld(*world, d.dir.path / "coupé", [&](bool ok) { outcome = ok; });
  ASSERT_TRUE(waitForPack(*d.clock, m));
  EXPECT_EQ(outcome, false);
  EXPECT_EQ(m._status.rfind("Rassembler « plan » interrompu : ", 0), 0u) << m._status;
  EXPECT_FALSE(fs::exists(d.dir.path / "coupé" / "monde.ombrik"));

  const std::size_t worlds = m._batches.size(), media = m._media.size();
  const struct { const char* what; std::string text; } broken[] = {
      {"no world file", ""},
      {"not JSON", "{\"version\": 1,"},
      {"an unknown version", R"({"version": 2, "media": [], "batch": {}})"},
      {"no batch", R"({"version": 1, "media": []})"},
      {"a bad media id", R"({"version": 1, "media": [{"id": "x", "name": "a", "path": "Rushs/a"}], "batch": {}})"},
      {"nesting bomb", "{\"version\": 1, \"media\": " + std::string(100000, '[') + "}"},
  };
  for (const auto& c : broken) {
    const fs::path pack = d.dir.path / "paquets" / c.what;
    fs::create_directories(pack);
    if (!c.text.empty()) writeText(pack / "monde.ombrik", c.text);
    EXPECT_FALSE(m.unpackWorld(pack)) << c.what;
    EXPECT_EQ(m._status, std::string("Paquet Ombrik illisible : ") + c.what);
    EXPECT_EQ(m._batches.size(), worlds);
    EXPECT_EQ(m._media.size(), media);
  }

  // A pack whose rush is gone still opens, and says so.
  writeRush(rush);
  const fs::path pack = d.dir.path / "entier";
  m.packWorld(*world, pack);
  ASSERT_TRUE(waitForPack(*d.clock, m));
  fs::remove(pack / "Rushs" / "plan.png");
  ASSERT_TRUE(m.unpackWorld(pack));
  EXPECT_EQ(m._status, "Monde « plan (rassemblé) » retrouvé : arbre, 0 rush et calculs IA · 1 rush manquant dans le paquet.");
}
