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
