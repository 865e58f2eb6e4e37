// The main window holds the world's name and saves the project when it closes; its screenshots are
// taken under Xvfb (tests/screenshots).
#include <gtest/gtest.h>

#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "../document/temp_model.h"
#include "document/app_model.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"
#include "shell/main_window.h"
#include "shell_app.h"

using namespace ombrik;
namespace fs = std::filesystem;

TEST(MainWindow, TitledOmbrikShowingTheWorld) {
  test::shellApp();
  AppModel model(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = std::make_shared<ManualScheduler>()});
  MainWindow window(model);
  window.show();
  EXPECT_EQ(window.windowTitle(), "Ombrik");
  auto* label = window.findChild<QLabel*>("worldName");
  ASSERT_NE(label, nullptr);
  EXPECT_EQ(label->text(), "Batch_01");

  model._batches[0].name = "Plan_07";
  window.refresh();
  EXPECT_EQ(label->text(), "Plan_07");
}


// Closing the window saves the project; a save that fails asks, and quits only when told to quit
// without saving. A project in a folder that can't be written: a tmpfs made read-only under root,
// a folder without the right to write otherwise.
TEST(MainWindow, ClosingSavesAndAFailedSaveAsksBeforeQuitting) {
  test::shellApp();
  TempDir dir;
  auto dialogs = std::make_shared<ScriptedDialogs>();
  AppModel::Options options = test::tempModelOptions(dir, std::make_shared<ManualScheduler>(), false);
  options.dialogs = dialogs;
  AppModel model(options);
  MainWindow window(model);
  window.setDialogs(dialogs);
  const fs::path folder = dir.path / "disque", project = folder / "Projet.tarvom";
  fs::create_directories(folder);
  const bool root = ::geteuid() == 0;
  if (root && std::system(("mount -t tmpfs -o size=256k tmpfs '" + folder.string() + "' 2>/dev/null").c_str()) != 0)
    GTEST_SKIP() << "no tmpfs can be mounted here";
  struct Restore {
    fs::path at;
    bool root;
    ~Restore() { root ? (void)std::system(("umount '" + at.string() + "'").c_str()) : (void)::chmod(at.c_str(), 0755); }
  } restore{folder, root};
  ASSERT_TRUE(model.write(project));
  const std::string before = slurp(project);
  model._nodes.push_back(Node(NodeKind::glow()));
  ASSERT_EQ(root ? std::system(("mount -o remount,ro '" + folder.string() + "'").c_str()) : ::chmod(folder.c_str(), 0555), 0);

  dialogs->alertAnswers = {0, 1};  // stay, then quit without saving
  window.show();
  EXPECT_FALSE(window.close());
  ASSERT_EQ(dialogs->alerts.size(), 1u);
  EXPECT_EQ(dialogs->alerts[0].title, std::string("Le projet n'a pas pu être enregistré : ") +
                                          (root ? "le disque est en lecture seule." : "écriture interdite."));
  EXPECT_EQ(dialogs->alerts[0].buttons, (std::vector<std::string>{"Ne pas quitter", "Quitter sans enregistrer"}));
  EXPECT_TRUE(window.isVisible());
  EXPECT_EQ(slurp(project), before);
  EXPECT_TRUE(window.close());
  EXPECT_FALSE(window.isVisible());
  EXPECT_EQ(dialogs->alerts.size(), 2u);
  EXPECT_EQ(slurp(project), before);

  // Where the save can be made, nothing is asked: a titled project is written over itself, an
  // untitled one to the automatic file, and it stays untitled.
  for (const std::optional<fs::path>& url : {std::optional(dir.path / "Ailleurs.tarvom"), std::optional<fs::path>()}) {
    model._projectURL = url;
    window.show();
    EXPECT_TRUE(window.close());
    EXPECT_EQ(dialogs->alerts.size(), 2u);
    EXPECT_EQ(model._projectURL, url);
    const fs::path written = url ? *url : dir.path / "data" / "Projets" / AppModel::kAutoFileName;
    EXPECT_NE(slurp(written).find("\"glow\""), std::string::npos) << written;
  }
}

// The Mondes menu carries the world operations: a new world, the world's LUT among the camera
// curves, and the LUT at render once there is one.
TEST(MainWindow, TheWorldsMenuMakesWorldsAndChoosesTheirLut) {
  test::shellApp();
  TempDir dir;
  AppModel model(test::tempModelOptions(dir, std::make_shared<ManualScheduler>(), false));
  MainWindow window(model);
  QMenu* worlds = nullptr;
  for (QAction* a : window.menuBar()->actions())
    if (a->text() == "Mondes") worlds = a->menu();
  ASSERT_NE(worlds, nullptr);
  auto trigger = [&](QMenu* menu, const QString& text) {
    emit menu->aboutToShow();
    for (QAction* a : menu->actions())
      if (a->text() == text) return a->trigger(), true;
    return false;
  };
  const std::size_t before = model._batches.size();
  ASSERT_TRUE(trigger(worlds, "Nouveau monde"));
  EXPECT_EQ(model._batches.size(), before + 1);
  EXPECT_EQ(*model._currentBatchID, model._batches.back().id) << "the new world is opened";
  emit worlds->aboutToShow();
  QMenu* lut = nullptr;
  for (QAction* a : worlds->actions())
    if (a->text() == "LUT du monde") lut = a->menu();
  ASSERT_NE(lut, nullptr);
  ASSERT_TRUE(trigger(lut, "Sony S-Log3 / S-Gamut3.Cine → Rec.709"));
  EXPECT_EQ(model.currentBatch()->lut, std::optional<std::string>("auto:slog3"));
  emit worlds->aboutToShow();
  for (QAction* a : worlds->actions())
    if (a->text() == "LUT du monde") lut = a->menu();
  ASSERT_TRUE(trigger(lut, "Appliquer la LUT au rendu"));
  EXPECT_EQ(model.currentBatch()->lutRender, std::optional<bool>(true));
}
