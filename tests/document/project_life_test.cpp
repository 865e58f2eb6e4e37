// A project's life and the File menu: bad files refused without harm, missing media kept, the
// untitled project kept over a restart, Save As, the open panel, a stale last project, the
// language's restart, media imported from the panel, and a new project.
#include <gtest/gtest.h>

#include <fstream>

#include "../media/test_clips.h"
#include "platform/app_language.h"
#include "platform/user_defaults.h"
#include "temp_model.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {
struct Life {
  TempDir dir;
  std::shared_ptr<ScriptedDialogs> dialogs = std::make_shared<ScriptedDialogs>();
  int relaunches = 0;
  std::unique_ptr<AppModel> start(bool openLast = true) {
    return std::make_unique<AppModel>(AppModel::Options{
        .blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>(),
        .defaultsFile = (dir.path / "defaults.conf").string(), .openLastProject = openLast, .dialogs = dialogs,
        .dataDir = dir.path / "data", .relaunch = [this] { ++relaunches; }});
  }
  fs::path autoFile() { return dir.path / "data" / "Projets" / AppModel::kAutoFileName; }
};
}  // namespace

TEST(ProjectLife, BadFilesChangeNothingAndMissingMediaIsKept) {
  Life t;
  auto m = t.start(false);
  const auto nodes = m->_nodes;
  const fs::path file = t.dir.path / "broken.tarvom";
  std::ofstream(file) << "{\"version\": 1, \"media\": [";
  const std::string before = slurp(file);
  EXPECT_FALSE(m->load(file));
  EXPECT_EQ(m->_status, "Projet illisible : broken.tarvom (JSON illisible)");  // the reader's reason is kept
  EXPECT_EQ(m->_nodes, nodes);
  EXPECT_FALSE(m->_projectURL);
  EXPECT_EQ(slurp(file), before);
  EXPECT_FALSE(m->load(t.dir.path / "absent.tarvom"));

  // A failed write leaves the old file whole and the state as it was.
  const fs::path good = t.dir.path / "good.tarvom";
  ASSERT_TRUE(m->write(good));
  const std::string saved = slurp(good);
  m->_nodes[0].params["format"] = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(m->write(good));
  EXPECT_EQ(m->_status.rfind("Enregistrement impossible : ", 0), 0u);
  EXPECT_EQ(slurp(good), saved);
  EXPECT_FALSE(fs::exists(t.dir.path / ".good.tarvom.part"));
  EXPECT_FALSE(m->write(t.dir.path / "no_such_folder" / "x.tarvom"));

  // Media missing when a project opens are said, and kept for the next save.
  const std::string text = R"({"version":1,"recent":[],
    "media":[{"id":"9E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"rush.mov","path":"/nowhere/rush.mov"}],
    "batches":[{"id":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"Attente","placeholder":true,"nodes":[],"edges":[],"positions":{}},
               {"id":"1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"Plan","nodes":[],"edges":[],"positions":{}}],
    "current":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8"})";
  std::ofstream(t.dir.path / "p.tarvom") << text;
  ASSERT_TRUE(m->load(t.dir.path / "p.tarvom"));
  EXPECT_EQ(m->_status, "Médias introuvables : rush.mov");
  EXPECT_EQ(m->currentBatch()->name, "Plan");  // the current world is a placeholder: the first real one
  ASSERT_TRUE(m->write(t.dir.path / "q.tarvom"));
  EXPECT_NE(slurp(t.dir.path / "q.tarvom").find("/nowhere/rush.mov"), std::string::npos);
}

TEST(ProjectLifeCycle, AnUntitledProjectComesBackAfterQuitting) {
  Life t;
  auto first = t.start();
  first->_nodes.push_back(Node(NodeKind::glow()));
  first->autosave();  // what the application does when it terminates
  ASSERT_TRUE(fs::exists(t.autoFile()));
  EXPECT_FALSE(first->_projectURL);  // still untitled
  const auto written = fs::last_write_time(t.autoFile());
  first->_batches.clear();
  first->autosave();
  EXPECT_EQ(fs::last_write_time(t.autoFile()), written) << "quitting with no world leaves the file alone";

  auto second = t.start();
  ASSERT_EQ(second->_nodes.size(), 2u);  // the work is back
  EXPECT_EQ(second->_nodes[1].kind->id, "glow");
  EXPECT_FALSE(second->_projectURL);
  t.dialogs->panelAnswers.push_back(std::nullopt);  // "Enregistrer" asks for a name; cancelled
  second->saveProject();
  ASSERT_EQ(t.dialogs->savePanels.size(), 1u);
  EXPECT_EQ(t.dialogs->savePanels[0].proposedName, "Projet_01.tarvom");
  EXPECT_EQ(t.dialogs->savePanels[0].directory, t.dir.path / "data" / "Projets");
}

TEST(ProjectLifeCycle, SavingAsAddsTheExtensionOnceAndOpeningWhileUntitledWritesNoAutomaticFile) {
  Life t;
  auto m = t.start(false);
  t.dialogs->panelAnswers = {t.dir.path / "Projet", t.dir.path / "Autre.tarvom"};
  m->saveProjectAs();
  EXPECT_TRUE(fs::exists(t.dir.path / "Projet.tarvom"));
  m->saveProjectAs();  // proposes the present name, in its folder
  EXPECT_EQ(t.dialogs->savePanels[1].proposedName, "Projet.tarvom");
  EXPECT_EQ(t.dialogs->savePanels[1].directory, t.dir.path);
  EXPECT_TRUE(fs::exists(t.dir.path / "Autre.tarvom"));
  EXPECT_FALSE(fs::exists(t.dir.path / "Autre.tarvom.tarvom"));
  m->saveProject();  // named: no panel
  EXPECT_EQ(t.dialogs->savePanels.size(), 2u);

  // Opening from the panel while untitled writes no automatic file.
  ASSERT_TRUE(m->write(t.dir.path / "Ailleurs.tarvom"));
  m = t.start(false);
  t.dialogs->panelAnswers = {t.dir.path / "Ailleurs.tarvom"};
  m->openProjectPanel();
  EXPECT_EQ(m->_projectURL, t.dir.path / "Ailleurs.tarvom");
  EXPECT_EQ(t.dialogs->openPanels[0].types, (std::vector<std::string>{"tarvom", "json"}));
  EXPECT_FALSE(fs::exists(t.autoFile()));
  // Named now: opening another first saves this one.
  m->_nodes.push_back(Node(NodeKind::grain()));
  t.dialogs->panelAnswers = {t.dir.path / "Ailleurs.tarvom"};
  m->openProjectPanel();
  EXPECT_EQ(m->_nodes.size(), 2u);  // it was saved before being opened again
}

TEST(ProjectLifeCycle, AStaleOrBrokenLastProjectGivesTheBlankStart) {
  Life t;
  {
    UserDefaults d((t.dir.path / "defaults.conf").string());
    d.set("lastProjectPath", (t.dir.path / "gone.tarvom").string());
  }
  auto m = t.start();
  EXPECT_EQ(m->currentBatch()->name, "Batch_01");
  EXPECT_TRUE(m->_status.empty());  // no message at start
  std::ofstream(t.dir.path / "broken.tarvom") << "{";
  m->defaults().set("lastProjectPath", (t.dir.path / "broken.tarvom").string());
  m->defaults().sync();
  auto again = t.start();
  EXPECT_EQ(again->currentBatch()->name, "Batch_01");
  EXPECT_TRUE(again->_status.empty());
}

TEST(ProjectLifeCycle, ChangingLanguageOffersARestartAfterSaving) {
  Life t;
  auto m = t.start(false);
  m->switchLanguage(AppLanguage::french);  // a development tree already speaks French
  EXPECT_TRUE(t.dialogs->alerts.empty());
  t.dialogs->alertAnswers = {1};  // "Later"
  m->switchLanguage(AppLanguage::english);
  ASSERT_EQ(t.dialogs->alerts.size(), 1u);
  EXPECT_EQ(t.dialogs->alerts[0].title, "Ombrik will switch to English.");
  EXPECT_EQ(m->defaults().string("ombrikLanguage"), "en");
  EXPECT_EQ(t.relaunches, 0);
  t.dialogs->alertAnswers = {0};  // "Redémarrer"
  m->switchLanguage(AppLanguage::french);
  EXPECT_EQ(t.relaunches, 1);
  EXPECT_TRUE(fs::exists(t.autoFile()));  // saved before the restart
  EXPECT_EQ(m->defaults().stringList("AppleLanguages"), std::vector<std::string>{"fr"});
}

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
  auto other = t.make(false);
  ASSERT_TRUE(other->load(saved));
  bool hasColour = false;
  for (const auto& b : other->_batches)
    for (const auto& n : b.nodes) hasColour = hasColour || n.kind->id == "color";
  EXPECT_TRUE(hasColour);
}
