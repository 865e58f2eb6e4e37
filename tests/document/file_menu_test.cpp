// The File menu's model side: media chosen in the open panel become worlds, the newest opens;
// a new project starts blank after the one left is saved.
#include <gtest/gtest.h>

#include <fstream>

#include "../media/test_clips.h"
#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "temp_model.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;

using Desk = test::ScriptedDesk;

TEST(FileMenu, ImportedMediaBecomeWorldsAndTheNewestOpens) {
  Desk t;
  AppModel& m = *t.m;
  ASSERT_TRUE(m.engine) << m._status;
  const fs::path clip = test::writeClip(t.dir.path / "plate.mp4", "-c:v libx264 -pix_fmt yuv420p");
  fs::create_directories(t.dir.path / "shoot");
  const fs::path inFolder = test::writeClip(t.dir.path / "shoot" / "take.mov", "-c:v prores_ks");
  std::ofstream(t.dir.path / "shoot" / "notes.txt") << "not media";

  EXPECT_TRUE(m.importPanel().empty()) << "cancelled: nothing";
  ASSERT_EQ(t.dialogs->openPanels.size(), 1u);
  EXPECT_EQ(t.dialogs->openPanels[0].message.rfind("Images (JPEG, PNG, TIFF, EXR) ou vidéos", 0), 0u);
  const std::size_t worldsBefore = m._batches.size();

  t.dialogs->manyAnswers.push_back({clip, t.dir.path / "shoot"});
  const std::vector<Uuid> worlds = m.importPanel();
  ASSERT_EQ(worlds.size(), 2u) << m._status;  // the clip, and the folder's one clip (the text file is no media)
  EXPECT_EQ(m._batches.size(), worldsBefore + 2);
  ASSERT_TRUE(m.currentBatch());
  EXPECT_EQ(m.currentBatch()->id, worlds.back());
  EXPECT_EQ(m.currentBatch()->name, "take");
  EXPECT_FALSE(m._worldView) << "the desktop shows the world itself";
  EXPECT_EQ(m._frameCount, test::kClipFrames) << "its clip sets the length";

  t.dialogs->manyAnswers.push_back({t.dir.path / "shoot" / "notes.txt"});
  EXPECT_TRUE(m.importPanel().empty());
  EXPECT_EQ(m._status, "Aucun média importable dans la sélection.");
  EXPECT_EQ(m.currentBatch()->id, worlds.back()) << "nothing changed";
}

TEST(FileMenu, ANewProjectSavesTheOneLeftAndStartsBlank) {
  Desk t;
  AppModel& m = *t.m;
  const fs::path clip = test::writeClip(t.dir.path / "plate.mp4", "-c:v libx264 -pix_fmt yuv420p");
  ASSERT_TRUE(m.createWorld(clip));
  const fs::path saved = t.dir.path / "job.tarvom";
  ASSERT_TRUE(m.write(saved));
  m._projectURL = saved;
  m.addNode(NodeKind::color(), {0, 0});  // a change not saved yet

  m.newProject();
  EXPECT_FALSE(m._projectURL);
  ASSERT_EQ(m._batches.size(), 1u);
  EXPECT_EQ(m._nodes.size(), 1u) << "a blank world: its output";
  EXPECT_TRUE(m._media.empty());
  EXPECT_TRUE(m.videos.empty());
  EXPECT_EQ(m._frameCount, 100);
  EXPECT_FALSE(m.history.dirty);
  m.undo();
  EXPECT_EQ(m._nodes.size(), 1u) << "nothing to undo into the project left";

  // The project left was written, with the change.
  AppModel other(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>(),
                                   .defaultsFile = (t.dir.path / "d2.conf").string(), .dataDir = t.dir.path / "data2"});
  ASSERT_TRUE(other.load(saved));
  bool hasColour = false;
  for (const auto& b : other._batches)
    for (const auto& n : b.nodes) hasColour = hasColour || n.kind->id == "color";
  EXPECT_TRUE(hasColour);
}
