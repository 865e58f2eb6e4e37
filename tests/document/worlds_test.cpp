// Worlds and their folders: placement on the map's grid, folders, copies, deletion and its undo,
// placeholder worlds, the refusal while a render runs, and the project file keeping it all.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <ostream>

#include "document/world_list.h"
#include "document/world_pack.h"
#include "engine/source_picture.h"
#include "platform/string_catalogue.h"
#include "platform/user_defaults.h"
#include "temp_model.h"

namespace ombrik {
void PrintTo(const Point& p, std::ostream* out) { *out << "(" << p.x << ", " << p.y << ")"; }
}  // namespace ombrik

using namespace ombrik;
namespace fs = std::filesystem;
namespace wl = ombrik::worldlist;
namespace wp = ombrik::worldpack;

namespace {

Batch world(const std::string& name, std::optional<Uuid> group = std::nullopt, std::optional<Point> at = std::nullopt) {
  Batch b;
  b.id = Uuid::generate();
  b.name = name;
  b.group = group;
  b.worldPos = at;
  return b;
}

WorldGroup folder(const std::string& name, std::optional<std::vector<double>> pos = std::nullopt) {
  return WorldGroup{Uuid::generate(), name, std::move(pos)};
}

// A model without GPU whose alerts answer from a script.
struct Desk : test::ScriptedDesk {
  Desk() : ScriptedDesk(false) {}
};

}  // namespace

TEST(WorldList, FreeCellsAndPlacesOnTheGrid) {
  const WorldGroup placed = folder("A", std::vector<double>{900, 700});
  const WorldGroup shortPos = folder("B", std::vector<double>{5});  // one number: no place
  struct Case {
    const char* what;
    std::vector<Batch> batches;
    std::vector<WorldGroup> groups;
    std::optional<Uuid> level;
    Point slot;
  };
  const Case cases[] = {
      {"empty level", {}, {}, std::nullopt, {150, 160}},
      {"a world dragged near the first cell keeps it taken", {world("w", {}, Point{200, 200})}, {}, std::nullopt, {380, 160}},
      {"between two cells both are taken", {world("w", {}, Point{265, 160})}, {}, std::nullopt, {610, 160}},
      {"folders come first at the top level", {world("w")}, {shortPos}, std::nullopt, {610, 160}},
      {"a placed folder leaves its cell free but still counts", {world("w")}, {placed}, std::nullopt, {150, 160}},
      {"inside a folder its siblings count, not the folders", {world("w", placed.id)}, {placed}, placed.id, {380, 160}},
      {"a seventh cell starts the second row", {world("1"), world("2"), world("3"), world("4"), world("5"), world("6")},
       {}, std::nullopt, {150, 430}},
  };
  for (const auto& c : cases) EXPECT_EQ(wl::nextSlot(c.batches, c.groups, c.level), c.slot) << c.what;

  const std::vector<WorldGroup> groups{placed, shortPos};
  EXPECT_EQ(wl::groupPosition(groups, placed), (Point{900, 700}));
  EXPECT_EQ(wl::groupPosition(groups, shortPos), (Point{380, 160}));  // the cell of its index
  const std::vector<Batch> batches{world("a"), world("in", placed.id), world("b")};
  EXPECT_EQ(wl::worldPosition(batches, groups.size(), batches[2]), (Point{840, 160}));  // index 1 after 2 folders
  EXPECT_EQ(wl::worldPosition(batches, groups.size(), batches[1]), (Point{150, 160}));
}

TEST(WorldList, FoldersGatherWorldsAndUngroupLaysRowsOfFive) {
  std::vector<Batch> batches{world("solo"), world("film"), world("shot"), world("other")};
  batches[1].filmTimeline = Uuid::generate();
  batches[2].film = FilmShot{*batches[1].filmTimeline, 0, 0, 10};
  std::vector<WorldGroup> groups;
  EXPECT_FALSE(wl::groupWorlds(batches, groups, {}, "x", std::nullopt));
  const Uuid f = *wl::groupWorlds(batches, groups, {Uuid::generate(), batches[1].id, batches[3].id}, "Plans", std::nullopt);
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_EQ(groups[0].pos, (std::vector<double>{380, 160}));  // where the film stood
  EXPECT_EQ(batches[1].worldPos, wl::cell(0));
  EXPECT_EQ(batches[3].worldPos, wl::cell(1));
  EXPECT_EQ(batches[2].group, f) << "a film takes its shots along";
  EXPECT_FALSE(batches[0].group);

  std::vector<Batch> many;
  for (int i = 0; i < 7; ++i) many.push_back(world(std::to_string(i), f));
  many.push_back(world("outside"));
  wl::ungroup(many, groups, f);
  EXPECT_TRUE(groups.empty());
  EXPECT_EQ(many[4].worldPos, (Point{380 + 4 * 230, 160}));
  EXPECT_EQ(many[5].worldPos, (Point{380, 430}));  // rows of five, not the map's six
  EXPECT_FALSE(many[6].group);
  EXPECT_FALSE(many[7].worldPos);
}

TEST(WorldList, DeletionTakesFolderMembersAndFilmShotsAndSaysSo) {
  WorldGroup f = folder("F");
  std::vector<Batch> batches{world("a", f.id), world("film", f.id), world("b"), world("shot"), world("keep")};
  batches[1].filmTimeline = Uuid::generate();
  batches[3].film = FilmShot{*batches[1].filmTimeline, 0, 0, 5};
  const auto d = wl::deletion(batches, {f}, {f.id, batches[2].id, Uuid::generate()});
  EXPECT_EQ(d.worlds, (std::vector<Uuid>{batches[0].id, batches[1].id, batches[2].id, batches[3].id}));
  EXPECT_EQ(d.folders, std::vector<Uuid>{f.id});
  EXPECT_EQ(d.timelines, std::vector<Uuid>{*batches[1].filmTimeline});

  struct Title { std::size_t folders, worlds; const char* text; };
  for (const Title& t : {Title{1, 3, "Supprimer le dossier et 3 mondes ?"}, Title{0, 1, "Supprimer 1 monde ?"},
                         Title{2, 1, "Supprimer 2 dossiers et 1 monde ?"}})
    EXPECT_EQ(wl::deleteTitle(t.folders, t.worlds), t.text);
  std::vector<Batch> seven;
  for (const char* n : {"A", "B", "C", "D", "E", "F", "G"}) seven.push_back(world(n));
  EXPECT_EQ(wl::deleteText(seven, wl::deletion(seven, {}, {seven[0].id, seven[6].id, seven[3].id})).substr(0, 9),
            "A, D, G\n\n");
  std::vector<Uuid> all;
  for (const Batch& b : seven) all.push_back(b.id);
  EXPECT_EQ(wl::deleteText(seven, wl::deletion(seven, {}, all)).substr(0, 21), "A, B, C, D, E, F…\n\n") << "six names at most";
}

TEST(WorldList, ListsShowTheRightWorldsInTheRightOrder) {
  using namespace std::chrono;
  const auto t0 = system_clock::time_point(seconds(1000));
  WorldGroup f = folder("F");
  std::vector<Batch> b{world("old"), world("new"), world("undated"), world("creator"), world("placeholder"),
                       world("in folder", f.id), world("film"), world("shot"), world("tie")};
  b[0].lastUsed = t0, b[1].lastUsed = t0 + seconds(5), b[8].lastUsed = t0;
  b[3].creator = true;
  b[4].placeholder = true;
  b[6].filmTimeline = Uuid::generate(), b[6].shotsFolded = true;
  b[7].film = FilmShot{*b[6].filmTimeline, 0, 0, 1};
  auto names = [](const std::vector<const Batch*>& list) {
    std::string out;
    for (const Batch* x : list) out += x->name + ",";
    return out;
  };
  EXPECT_EQ(names(wl::byRecency(b)), "new,old,tie,undated,placeholder,in folder,film,shot,");
  EXPECT_EQ(names(wl::visible(b, std::nullopt)), "old,new,undated,film,tie,");
  EXPECT_EQ(names(wl::visible(b, f.id)), "in folder,");
  b[6].shotsFolded = false;
  EXPECT_EQ(names(wl::visible(b, std::nullopt)), "old,new,undated,film,shot,tie,");
}

// Texts built from counts and names find their English through the catalogue's templates.
TEST(WorldList, TextsFindTheirEnglish) {
  std::vector<Batch> two{world("A"), world("B")};
  EXPECT_EQ(translate(wl::deletedStatus(1), AppLanguage::english), "1 world deleted · ⌘Z to undo.");
  for (const std::string& french :
       {"Annulé : " + wl::deleteLabel(2) + ".", wl::deleteTitle(1, 3), wl::deleteTitle(2, 1),
        wl::deleteText(two, wl::deletion(two, {}, {two[0].id, two[1].id})), wl::importStatus(4, std::nullopt),
        wl::importStatus(1, "Batch_07"), wl::foldStatus(false, 3, "Film"), wp::startStatus("Plan", 3),
        wp::unpackedStatus("A", 2, 1), wp::doneStatus(1)})
    EXPECT_NE(translate(french, AppLanguage::english), french);
}

TEST(Worlds, DuplicateHoldsTheUnsavedGraphUnderFreshIds) {
  Desk t;
  AppModel& m = *t.m;
  const Uuid out = *m.outputNode();
  const Uuid color = m.addNode(NodeKind::color(), {300, 100});  // not saved into the world yet
  m.connect(color, out, 0, 0);
  m._edges.push_back(Edge{Uuid::generate(), color, Uuid::generate(), 0, 0});  // a dangling wire
  m.layout.set(Uuid::generate(), {1, 1});                                   // and a stray position
  const Uuid original = *m._currentBatchID;
  EXPECT_FALSE(m.duplicateBatch(Uuid::generate()));
  const Uuid copy = *m.duplicateBatch(original);
  m.duplicateBatch(original);
  EXPECT_EQ(m._currentBatchID, original) << "copies aren't opened";
  const Batch& c = *wl::find(m._batches, copy);
  EXPECT_EQ(c.name, "Batch_01_copie");
  EXPECT_EQ(m._batches.back().name, "Batch_01_copie") << "names needn't be unique";
  ASSERT_EQ(c.nodes.size(), 2u) << "the change not yet saved is in the copy";
  ASSERT_EQ(c.edges.size(), 1u);
  EXPECT_EQ(c.edges[0].from, c.nodes[1].id);
  EXPECT_EQ(c.edges[0].to, c.nodes[0].id);
  EXPECT_EQ(c.positions.size(), 2u);
  for (const Node& n : c.nodes) {
    EXPECT_FALSE(m.nodeByID(n.id)) << "fresh ids";
    EXPECT_TRUE(c.positions.count(n.id));
  }
  EXPECT_FALSE(c.worldPos || c.group || c.lut || c.mediaID);
}

TEST(Worlds, PlaceholderGoesWhenAnotherOpensUnlessItHoldsWork) {
  for (bool work : {false, true}) {
    Desk t;
    AppModel& m = *t.m;
    m._batches[0].placeholder = true;
    if (work) m.addNode(NodeKind::color(), {0, 0});
    EXPECT_EQ(m._batches[0].placeholder, !work);
    m.newBatch();
    EXPECT_EQ(m._batches.size(), work ? 2u : 1u) << work;
    EXPECT_EQ(m.currentBatch()->name, "Batch_02");
    EXPECT_EQ(m._nodes.size(), 2u);
    EXPECT_EQ(m._selected, m.outputNode()) << "the output is selected";
  }
}

TEST(Worlds, DeletingEverythingLeavesBatch01AndUndoBringsItAllBack) {
  Desk t;
  AppModel& m = *t.m;
  m.addNode(NodeKind::glow(), {10, 10});
  m.newBatch();
  m.newBatch("Plan C");
  const Uuid f = *m.groupWorlds({m._batches[1].id, m._batches[2].id}, "Dossier");
  EXPECT_EQ(m._renameGroupRequest, f);
  m.setWorldLUT(m._batches[0].id, "/luts/Rec709.cube");
  m.saveCurrentBatch();
  const auto batches = m._batches;
  const auto groups = m._worldGroups;
  const auto current = m._currentBatchID;

  t.dialogs->alertAnswers = {1};
  m.deleteWorlds({f, m._batches[0].id}, true);
  ASSERT_EQ(t.dialogs->alerts.size(), 1u);
  EXPECT_EQ(m._batches, batches) << "cancelled";

  t.dialogs->alertAnswers = {0};
  m._openGroup = f;
  m.deleteWorlds({f, m._batches[0].id}, true);
  ASSERT_EQ(m._batches.size(), 1u);
  EXPECT_EQ(m._batches[0].name, "Batch_01");
  EXPECT_NE(m._batches[0].id, batches[0].id) << "a new world";
  EXPECT_EQ(m._currentBatchID, m._batches[0].id);
  EXPECT_TRUE(m._worldGroups.empty());
  EXPECT_FALSE(m._openGroup);
  EXPECT_EQ(m._status, "3 mondes supprimés · ⌘Z pour annuler.");

  m._worldView = true;
  m.undo();
  EXPECT_EQ(m._batches, batches) << "every world as it was";
  EXPECT_EQ(m._worldGroups, groups);
  EXPECT_EQ(m._currentBatchID, current);
  EXPECT_EQ(m._nodes.size(), 2u);

  m.deleteWorlds({m._batches[1].id}, false);
  m.newProject();
  const auto fresh = m._batches;
  m._worldView = true;
  m.undo();
  EXPECT_EQ(m._batches, fresh) << "another project's worlds don't come back into a new one";
}

TEST(Worlds, DeleteBatchKeepsTheLastAndOpensANeighbour) {
  Desk t;
  AppModel& m = *t.m;
  m.deleteBatch(*m._currentBatchID);
  EXPECT_EQ(m._batches.size(), 1u) << "the last world stays";
  const Uuid first = m._batches[0].id;
  m.newBatch();
  m.renameBatch(first, "  \t");
  m.renameBatch(first, " Plan A ");
  EXPECT_EQ(m._batches[0].name, " Plan A ") << "blank names are ignored, others kept as typed";
  m.openBatch(first);
  m.deleteBatch(first);
  EXPECT_EQ(m._batches.size(), 1u);
  EXPECT_EQ(m.currentBatch()->name, "Batch_02");
}

TEST(Worlds, RenderRefusesAnotherWorldAndDeletionStopsItsJobs) {
  test::ScriptedDesk t;  // a real render, on the CPU driver
  AppModel& m = *t.m;
  ASSERT_TRUE(m.engine) << m._status;
  const Uuid blank = *m._currentBatchID;
  const Uuid media = *m.addMedia(SampleImage::make(64, 36), "plate");
  const Uuid first = m.makeWorld(media, "A"), second = m.makeWorld(media, "B");
  m.openBatch(first);
  m._worldView = true;
  m.enqueueRender({first, second});
  ASSERT_TRUE(m.rendering) << m._status;
  m.enterWorld(second);
  EXPECT_EQ(m._status, "Rendu en cours : le monde s'ouvrira à la fin (ou arrêtez la file de rendu).");
  EXPECT_EQ(m._currentBatchID, first);
  EXPECT_TRUE(m._worldView) << "a refused world leaves the map in front";

  m.deleteWorlds({first}, false);
  EXPECT_FALSE(m.rendering) << "the render of a world that goes ends at once";
  EXPECT_EQ(m._currentBatchID, blank) << "the first world left opens";
  EXPECT_TRUE(m.delivery.renderQueue.empty()) << "its job goes, and stopping the renders drops the waiting one";
  t.clock->advance(1);
  EXPECT_EQ(m._batches.size(), 2u);
  EXPECT_EQ(m._currentBatchID, blank);
}

TEST(Worlds, ImportedFilesBecomeWorldsInAFolderNamedAfterTheirs) {
  for (bool placed : {false, true}) {
    Desk t;
    AppModel& m = *t.m;
    fs::create_directories(t.dir.path / "Rushs");
    std::vector<fs::path> files;
    for (const char* name : {"a.png", "b.png"}) {
      files.push_back(test::writeStill(t.dir.path / "Rushs" / name, 32, 16));
      ASSERT_FALSE(files.back().empty());
    }
    files.push_back(t.dir.path / "Rushs" / "notes.txt");
    const auto ids = m.importAsWorlds(files, placed ? std::optional(Point{1000, 50}) : std::nullopt);
    ASSERT_EQ(ids.size(), 2u) << m._status;
    EXPECT_TRUE(m._worldView);
    if (placed) {
      EXPECT_EQ(m._batches.back().worldPos, (Point{1230, 50}));
      EXPECT_TRUE(m._worldGroups.empty());
    } else {
      ASSERT_EQ(m._worldGroups.size(), 1u);
      EXPECT_EQ(m._renameGroupRequest, m._worldGroups[0].id);
      EXPECT_EQ(m._batches.back().group, m._worldGroups[0].id);
      EXPECT_EQ(m.worldMedia(m._batches.back())->name, "b.png");
    }
  }
}

TEST(Worlds, GraphFoldersOrderAndLUTsComeBackFromTheProjectFile) {
  Desk t;
  AppModel& a = *t.m;
  a.newBatch("Deux");
  a.newBatch("Trois");
  const Uuid f = *a.groupWorlds({a._batches[2].id}, "Dossier", Point{40, 50});
  a.groupWorlds({a._batches[1].id}, "Sans place");
  a._worldGroups[1].pos.reset();
  a.setWorldLUT(a._batches[0].id, "");
  a.setWorldLUT(a._batches[1].id, "auto:logc3");
  EXPECT_EQ(a._status, "LUT du monde « Deux » : ARRI LogC3 → Rec.709");
  const fs::path broken = t.dir.path / "cassée.cube";
  std::ofstream(broken) << "LUT_3D_SIZE 2\n0 0 0\n";
  EXPECT_FALSE(a.setWorldLUTFile(a._batches[1].id, broken));
  EXPECT_EQ(a._status.rfind("LUT illisible : cassée.cube (", 0), 0u) << a._status;
  EXPECT_EQ(a._batches[1].lut, "auto:logc3") << "a table that can't be read changes nothing";
  a.toggleWorldLUTRender(a._batches[1].id);
  a._openGroup = f;
  const Uuid colour = a.addNode(NodeKind::color(), {10, 20});
  a.setParams(colour, {{"sat", 0.3}});
  const fs::path file = t.dir.path / "mondes.tarvom";
  ASSERT_TRUE(a.write(file)) << a._status;
  EXPECT_EQ(a._projectURL, file);
  EXPECT_EQ(a.defaults().string("lastProjectPath"), file.string()) << "the path is remembered";

  auto b = t.make(false);
  ASSERT_TRUE(b->load(file)) << b->_status;
  EXPECT_EQ(b->_nodes, a._nodes);
  EXPECT_EQ(b->layout.positions(), a.layout.positions());
  EXPECT_EQ(b->_currentBatchID, a._currentBatchID);
  // Reading stamps worlds without a date; from then on the same state gives the same bytes.
  ASSERT_TRUE(b->write(t.dir.path / "once.tarvom") && b->write(t.dir.path / "twice.tarvom"));
  EXPECT_EQ(slurp(t.dir.path / "once.tarvom"), slurp(t.dir.path / "twice.tarvom"));
  EXPECT_EQ(b->_worldGroups, a._worldGroups);
  ASSERT_EQ(b->_batches.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(b->_batches[i].name, a._batches[i].name) << "in their order";
  EXPECT_FALSE(b->_openGroup) << "a project opens at the top of the map";
  b->ungroup(f);
  EXPECT_EQ(b->_batches[2].worldPos, (Point{40, 50}));
}
