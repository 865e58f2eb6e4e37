// A project's life: written and read back, bad files refused without harm, the untitled project
// kept over a restart, Save As, the open panel, a stale last project and the language's restart.
#include <gtest/gtest.h>

#include <fstream>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "platform/app_language.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"
#include "platform/user_defaults.h"

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

TEST(ProjectLife, WriteThenLoadGivesTheSameWorldsAndRemembersThePath) {
  Life t;
  auto a = t.start(false);
  Node color(NodeKind::color());
  color.params["sat"] = 0.3;
  a->_nodes.push_back(color);
  a->layout.set(color.id, {10, 20});
  a->_recentKinds = {"color"};
  const fs::path file = t.dir.path / "Projet.tarvom";
  ASSERT_TRUE(a->write(file)) << a->_status;
  EXPECT_EQ(a->_projectURL, file);
  EXPECT_EQ(a->defaults().string("lastProjectPath"), file.string());

  auto b = t.start(false);
  ASSERT_TRUE(b->load(file)) << b->_status;
  EXPECT_EQ(b->_nodes, a->_nodes);
  EXPECT_EQ(b->layout.positions(), a->layout.positions());
  EXPECT_EQ(b->_batches.size(), 1u);
  EXPECT_EQ(b->_currentBatchID, a->_currentBatchID);
  EXPECT_EQ(b->_recentKinds, a->_recentKinds);
  EXPECT_EQ(slurp(file).find("\"folders\""), std::string::npos);  // empty: left out
  // Reading stamps worlds without a date; from then on the same state gives the same bytes.
  EXPECT_TRUE(b->write(t.dir.path / "once.tarvom"));
  EXPECT_TRUE(b->write(t.dir.path / "twice.tarvom"));
  EXPECT_EQ(slurp(t.dir.path / "once.tarvom"), slurp(t.dir.path / "twice.tarvom"));
}

TEST(ProjectLife, BadFilesChangeNothing) {
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
}

TEST(ProjectLife, MissingMediaIsReportedAndKeptForTheNextSave) {
  Life t;
  const std::string text = R"({"version":1,"recent":[],
    "media":[{"id":"9E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"rush.mov","path":"/nowhere/rush.mov"}],
    "batches":[{"id":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"Attente","placeholder":true,"nodes":[],"edges":[],"positions":{}},
               {"id":"1E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8","name":"Plan","nodes":[],"edges":[],"positions":{}}],
    "current":"0E5A1B2C-3D4E-4F60-8172-93A4B5C6D7E8"})";
  const fs::path file = t.dir.path / "p.tarvom";
  std::ofstream(file) << text;
  auto m = t.start(false);
  ASSERT_TRUE(m->load(file));
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

  auto second = t.start();
  ASSERT_EQ(second->_nodes.size(), 2u);  // the work is back
  EXPECT_EQ(second->_nodes[1].kind->id, "glow");
  EXPECT_FALSE(second->_projectURL);
  t.dialogs->panelAnswers.push_back(std::nullopt);  // "Enregistrer" asks for a name; cancelled
  second->saveProject();
  ASSERT_EQ(t.dialogs->savePanels.size(), 1u);
  EXPECT_EQ(t.dialogs->savePanels[0].title, "Enregistrer le projet");
  EXPECT_EQ(t.dialogs->savePanels[0].proposedName, "Projet_01.tarvom");
  EXPECT_EQ(t.dialogs->savePanels[0].directory, t.dir.path / "data" / "Projets");
}

TEST(ProjectLifeCycle, QuittingWithNoWorldLeavesTheAutomaticFileAlone) {
  Life t;
  auto m = t.start(false);
  m->autosave();
  const auto before = fs::last_write_time(t.autoFile());
  m->_batches.clear();
  m->autosave();
  EXPECT_EQ(fs::last_write_time(t.autoFile()), before);
}

TEST(ProjectLifeCycle, SavingAsAddsTheExtensionOnce) {
  Life t;
  auto m = t.start(false);
  t.dialogs->panelAnswers = {t.dir.path / "Projet", t.dir.path / "Autre.tarvom"};
  m->saveProjectAs();
  EXPECT_TRUE(fs::exists(t.dir.path / "Projet.tarvom"));
  EXPECT_EQ(m->_status, "Projet enregistré : Projet.tarvom");
  m->saveProjectAs();  // proposes the present name, in its folder
  EXPECT_EQ(t.dialogs->savePanels[1].proposedName, "Projet.tarvom");
  EXPECT_EQ(t.dialogs->savePanels[1].directory, t.dir.path);
  EXPECT_TRUE(fs::exists(t.dir.path / "Autre.tarvom"));
  EXPECT_FALSE(fs::exists(t.dir.path / "Autre.tarvom.tarvom"));
  m->saveProject();  // named: no panel
  EXPECT_EQ(t.dialogs->savePanels.size(), 2u);
}

TEST(ProjectLifeCycle, OpeningFromThePanelWhileUntitledWritesNoAutomaticFile) {
  Life t;
  auto other = t.start(false);
  ASSERT_TRUE(other->write(t.dir.path / "Ailleurs.tarvom"));
  auto m = t.start(false);
  t.dialogs->panelAnswers = {t.dir.path / "Ailleurs.tarvom"};
  m->openProjectPanel();
  EXPECT_EQ(m->_status, "Projet ouvert : Ailleurs.tarvom");
  EXPECT_EQ(t.dialogs->openPanels[0].title, "Ouvrir un projet");
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
  EXPECT_EQ(t.dialogs->alerts[0].buttons, (std::vector<std::string>{"Restart", "Later"}));
  EXPECT_EQ(m->defaults().string("ombrikLanguage"), "en");
  EXPECT_EQ(t.relaunches, 0);
  t.dialogs->alertAnswers = {0};  // "Redémarrer"
  m->switchLanguage(AppLanguage::french);
  EXPECT_EQ(t.dialogs->alerts[1].text, "Redémarrer maintenant ? Votre projet est enregistré avant.");
  EXPECT_EQ(t.relaunches, 1);
  EXPECT_TRUE(fs::exists(t.autoFile()));  // saved before the restart
  EXPECT_EQ(m->defaults().stringList("AppleLanguages"), std::vector<std::string>{"fr"});
}
