// Timelines in the model: creation and naming, layers and the size they give, the edit commands
// with their texts and undo, the keys of the workspace, and layers leading into their worlds.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "document/world_list.h"
#include "engine/source_picture.h"
#include "temp_model.h"

#include <QtCore/qnamespace.h>

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

struct Desk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel m{test::tempModelOptions(dir, clock, false)};

  Uuid clip(const std::string& name, int frames, int w = 1280, int h = 720, double fps = 24) {
    MediaItem item{Uuid::generate(), name, dir.path / name, w, h, std::nullopt, std::nullopt, true, frames, fps};
    m._media.push_back(item);
    return item.id;
  }
  Timeline& current() { return *m.tl.current(); }
  // A timeline open with layers (start, length) of clips 100 frames long.
  void open(std::initializer_list<std::pair<int, int>> spans) {
    m.newTimeline();
    for (auto [start, length] : spans) {
      m.addLayer(LayerSource::media(clip("c.mov", 100)), start);
      m.updateLayer(current().layers.back().id, [&](TLayer& l) { l.length = length; });
    }
  }
};

TimelineKeyPress key(int k, bool shift = false, bool command = false, bool option = false) {
  return {k, shift, command, option, false};
}

}  // namespace

TEST(TimelineModel, NewTimelinesTakeTheirNamesAndTheFirstSourcesSize) {
  Desk d;
  d.clip("a.mov", 48, 1280, 720, 24);
  d.m.newTimeline();
  const Timeline& t = d.current();
  EXPECT_EQ(t.name, "Timeline_01");
  EXPECT_EQ((std::array{t.width, t.height}), (std::array{1280, 720}));
  EXPECT_EQ(t.fps, 24);
  EXPECT_TRUE(d.m.tl.timelineSettingsOpen);
  EXPECT_EQ(d.m.tl.workspace, Workspace::timeline);
  EXPECT_EQ(d.m.emptySequence(), t.id);  // an empty timeline is reused

  // The first layer of a plain timeline gives it its size; a world's through its media.
  const Uuid tall = d.clip("tall.mov", 30, 1080, 1920, 30);
  const Uuid world = d.m.makeWorld(tall, "Tall");
  d.m.addLayer(LayerSource::batch(world), -5);
  EXPECT_EQ((std::array{d.current().width, d.current().height}), (std::array{1080, 1920}));
  EXPECT_EQ(d.current().fps, 30);
  const TLayer& l = d.current().layers[0];
  EXPECT_EQ((std::array{l.start, l.length}), (std::array{0, 30}));
  EXPECT_EQ(l.name, "Tall");
  EXPECT_EQ(d.m._frameCount, 30);
  d.m.addLayer(LayerSource::media(Uuid::generate()), 40);  // gone: 100 frames, "Média"
  EXPECT_EQ(d.current().layers[1].name, "Média");
  EXPECT_EQ(d.current().duration(), 140);
  EXPECT_EQ((std::array{d.current().width, d.current().height}), (std::array{1080, 1920}));  // only the first sets it

  const auto seq = d.m.emptySequence();
  ASSERT_TRUE(seq);
  EXPECT_EQ(d.m.tl.find(*seq)->name, "Séquence 02");
  EXPECT_EQ(d.m.tl.find(*seq)->width, 1280);  // the first video of the media list
}

TEST(TimelineModel, EditCommandsSayWhatTheyDidAndUndoAsOneStep) {
  Desk d;
  d.open({{0, 20}, {10, 30}});
  const std::vector<Timeline> start = d.m.tl.timelines;
  struct Step { std::function<void(AppModel&)> run; std::string status; std::size_t layers; };
  const Step steps[] = {
      {[](AppModel& m) { m.seekFrame(0); m.bladeAtPlayhead(); }, "Rien à couper sous la tête de lecture.", 2},
      {[](AppModel& m) { m.seekFrame(15); m.bladeAtPlayhead(); }, "Coupé à l'image 16 (2 calques) · ⌘Z pour annuler", 4},
      {[](AppModel& m) { m.deleteSelectedLayers(true); }, "2 calques supprimés (trou refermé) · ⌘Z pour annuler", 2},
      {[](AppModel& m) { m.tl.tlSelection.clear(); m.deleteSelectedLayers(false); },
       "Sélectionnez un calque (clic) pour le supprimer.", 2},
      {[](AppModel& m) { m.seekFrame(5); m.trimToPlayhead(true); }, "Début rogné à la tête de lecture", 2},
      {[](AppModel& m) { m.selectAllLayers(); m.duplicateSelectedLayers(); }, "Calque dupliqué", 4},
  };
  for (const auto& s : steps) {
    s.run(d.m);
    EXPECT_EQ(d.m._status, s.status);
    EXPECT_EQ(d.current().layers.size(), s.layers) << s.status;
  }
  EXPECT_EQ(d.current().layers[0].start, 5);  // the trimmed layer starts at the playhead
  EXPECT_EQ(d.m._frameCount, d.current().duration());
  // Undo through the one undo of the application, the timeline's steps first.
  for (int i = 0; i < 4; ++i) d.m.undo();
  EXPECT_EQ(d.m._status, "Timeline : modification annulée.");
  EXPECT_EQ(d.m.tl.timelines, start);
  d.m.redo();
  EXPECT_EQ(d.current().layers.size(), 4u);
}

TEST(TimelineModel, KeysOfTheWorkspace) {
  Desk d;
  d.open({{0, 50}, {20, 60}});  // 80 frames at 24 fps
  struct Case {
    TimelineKeyPress press;
    bool taken;
    int frame;          // the playhead after the key, from frame 40
    std::size_t layers;  // after the key
  };
  const Case cases[] = {
      {key(Qt::Key_B), true, 40, 4},
      {key(Qt::Key_B, false, false, true), false, 40, 2},
      {key(Qt::Key_D, true, true), true, 40, 4},  // Ctrl+Shift+D cuts too
      {key(Qt::Key_D, false, true), true, 40, 2},  // Ctrl+D with nothing selected duplicates nothing
      {key(Qt::Key_Right), false, 40, 2},
      {key(Qt::Key_Right, true), true, 64, 2},
      {key(Qt::Key_Left, true), true, 16, 2},
      {key(Qt::Key_Home), true, 0, 2},
      {key(Qt::Key_End), true, 79, 2},
      {key(Qt::Key_Down), true, 50, 2},  // the next edit point
      {key(Qt::Key_Up), true, 20, 2},
      {key(Qt::Key_Delete, true), true, 40, 2},  // nothing selected: nothing deleted
  };
  for (const auto& c : cases) {
    d.m.tl.timelines = {d.m.tl.timelines.front()};
    d.open({{0, 50}, {20, 60}});
    d.m.tl.tlSelection.clear();
    d.m.seekFrame(40);
    const bool taken = d.m.timelineKey(c.press);
    EXPECT_EQ(taken, c.taken) << c.press.key;
    EXPECT_EQ(d.m._currentFrame, c.frame) << c.press.key;
    EXPECT_EQ(d.current().layers.size(), c.layers) << c.press.key;
  }
  d.m.backToBatch();
  EXPECT_FALSE(d.m.timelineKey(key(Qt::Key_B)));  // the graph workspace keeps its keys
}

TEST(TimelineModel, LayersLeadIntoTheirWorldsAndBack) {
  Desk d;
  d.open({{10, 40}});
  const Uuid layer = d.current().layers[0].id;
  d.current().layers[0].name = "plan.01.mov";
  d.current().layers[0].inPoint = 7;
  d.m.layerToBatch(layer);
  const TLayer& l = d.current().layers[0];
  ASSERT_TRUE(l.source.isBatch());
  EXPECT_EQ(worldlist::find(d.m._batches, l.source.id)->name, "plan_01_mov") << "named after the layer";

  // An effect from the timeline goes between the chain's last node and the output.
  d.m.seekFrame(12);
  d.m.addLayerEffect(*NodeKind::find("blur"));
  d.m.addLayerEffect(*NodeKind::find("invert"));
  const auto chain = d.m.layerEffects(d.current().layers[0]);
  ASSERT_EQ(chain.size(), 2u);
  EXPECT_EQ(chain[0].kind->id, "blur");
  EXPECT_EQ(chain[1].kind->id, "invert");
  EXPECT_EQ(d.m._selected, chain[1].id);

  // Into the world at the layer's own frame, and back to the same place of the film.
  d.m.seekFrame(25);
  d.m.openLayerBatch(layer);
  EXPECT_EQ(d.m.tl.workspace, Workspace::batch);
  EXPECT_EQ(d.m._currentBatchID, l.source.id);
  EXPECT_EQ(d.m._currentFrame, 7 + 15);
  d.m.seekFrame(60);  // past the layer's end: back at its last frame
  ASSERT_TRUE(d.m.returnToFilm());
  EXPECT_EQ(d.m.tl.workspace, Workspace::timeline);
  EXPECT_EQ(d.m._currentFrame, 10 + 39);
  EXPECT_FALSE(d.m.returnToFilm());
}

TEST(TimelineModel, DroppedFilesBecomeShotsInNaturalOrder) {
  Desk d;
  d.m.newTimeline();
  const std::size_t worlds = d.m._batches.size();
  for (const char* name : {"shot10.png", "shot2.png"}) ASSERT_FALSE(test::writeStill(d.dir.path / name, 32, 16).empty());
  d.m.dropOnTimeline({}, {d.dir.path / "shot10.png", d.dir.path / "shot2.png"}, 3);
  ASSERT_EQ(d.current().layers.size(), 2u);
  EXPECT_EQ(d.current().layers[0].name, "shot2");
  EXPECT_EQ((std::array{d.current().layers[0].start, d.current().layers[1].start}), (std::array{3, 103}));
  EXPECT_EQ((std::array{d.current().width, d.current().height}), (std::array{32, 16}));
  d.m.dropOnTimeline({"media:" + d.m._media[0].id.toString()}, {}, 0);  // the same media: its world again
  EXPECT_EQ(d.m._batches.size(), worlds + 2);  // one world a shot
  d.m.undo();
  d.m.undo();
  EXPECT_TRUE(d.current().layers.empty());
}

TEST(TimelineModel, AnOtioFileGoesOutAndComesBackAsANewTimeline) {
  Desk d;
  d.open({{0, 20}, {30, 10}});
  d.current().layers[1].source = LayerSource::batch(d.m.makeWorld(d.current().layers[1].source.id, "W"));
  const Timeline before = d.current();
  const fs::path file = d.dir.path / "cut.otio";
  ASSERT_TRUE(d.m.exportTimelineOTIO(before.id, file)) << d.m._status;
  ASSERT_TRUE(d.m.importTimelineOTIO(file)) << d.m._status;
  ASSERT_EQ(d.m.tl.timelines.size(), 2u);
  Timeline back = d.current();
  EXPECT_NE(back.id, before.id);  // a second copy, not the same timeline twice
  back.id = before.id;
  EXPECT_EQ(back, before);
  d.m.undo();  // the import is one step of the timelines' undo
  EXPECT_EQ(d.m.tl.timelines.size(), 1u);

  std::ofstream(d.dir.path / "bad.otio") << "{\"OTIO_SCHEMA\": \"Clip.2\"}";
  EXPECT_FALSE(d.m.importTimelineOTIO(d.dir.path / "bad.otio"));
  EXPECT_EQ(d.m._status.rfind("Import OTIO impossible : ", 0), 0u) << d.m._status;
  EXPECT_EQ(d.m.tl.timelines.size(), 1u);
}
