// Screenshots of what a new user meets first, in each language, taken on a real X server (Xvfb)
// and saved for people to look at: the empty project inviting an import, an imported clip with a
// keyed node, a node with nothing wired in, and the Aide menu with the keys it lists.
#include <gtest/gtest.h>

#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <QTreeWidget>
#include <cstdlib>

#include "screenshot_look.h"
#include "../color/ocio_config.h"
#include "../document/temp_model.h"
#include "../platform/temp_dir.h"
#include "../shell/shell_app.h"
#include "document/app_model.h"
#include "platform/app_paths.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/dark_theme.h"
#include "shell/frame_slider.h"
#include "shell/help_menu.h"
#include "shell/main_window.h"
#include "shell/qt_translations.h"
#include "shell/transport_bar.h"
#include "shell/viewer_widget.h"

using namespace ombrik;

namespace {
using Look = test::ScreenshotLook;
inline bool save(const QImage& shot, const std::string& name) { return test::saveScreenshot(shot, name); }
inline std::string suffix(AppLanguage language) { return test::languageSuffix(language); }

// A window on `model`, shown at the default size, after the renders its clock holds.
struct Shown {
  MainWindow window;
  explicit Shown(AppModel& model, ManualScheduler& clock) : window(model) {
    window.resize(1280, 800);
    window.show();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(&window));
    settle(model, clock);
  }
  void settle(AppModel& model, ManualScheduler& clock) {
    test::settleSeeks(clock, model);
    clock.advance(1.0);
    window.refresh();
    QCoreApplication::processEvents();
    window.refresh();
  }
};

void screenshotOfTheEmptyProject(AppLanguage language) {
  Look look(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(test::tempModelOptions(dir, clock));
  Shown shown(model, *clock);
  EXPECT_TRUE(save(shown.window.grab().toImage(), "empty_project" + suffix(language)));

  const bool english = language == AppLanguage::english;
  ViewerWidget* viewer = shown.window.viewer();
  EXPECT_TRUE(viewer->blankText().startsWith(english ? "Drop a video here to start" : "Glissez une vidéo ici pour commencer"));
  EXPECT_TRUE(viewer->importButton()->isVisible());
  EXPECT_EQ(viewer->importButton()->text(), english ? "Import shots…" : "Importer des rushs…");
  EXPECT_EQ(shown.window.windowTitle(), english ? "Untitled[*] — Ombrik" : "Sans titre[*] — Ombrik");
}

// A clip imported as a world, a colour node keyed at three frames and selected: the picture with
// its name, the keys on the time bar, the title of a project with unsaved changes.
void screenshotOfAnImportedClip(AppLanguage language) {
  Look look(language);
  TempDir dir;
  const std::filesystem::path clip = dir.path / "Plage.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc2=size=960x540:rate=25 -frames:v 48 -c:v libx264 "
                         "-pix_fmt yuv420p '" + clip.string() + "'").c_str()), 0);
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(test::tempModelOptions(dir, clock));
  ASSERT_TRUE(model.engine) << model._status;
  const std::vector<Uuid> worlds = model.importAsWorlds({clip});
  ASSERT_EQ(worlds.size(), 1u) << model._status;
  model.openBatch(worlds[0]);
  const Uuid color = model.addNode(NodeKind::color(), {400, 140});
  model.intercalate(color, model._edges.front().id);
  for (const auto& [frame, value] : {std::pair{4, -0.4}, std::pair{24, 0.6}, std::pair{40, 0.1}})
    model.setKey(color, "exposure", frame, value);
  model.select(color);
  model.seekFrame(24);
  Shown shown(model, *clock);
  EXPECT_TRUE(save(shown.window.grab().toImage(), "imported_clip" + suffix(language)));

  const bool english = language == AppLanguage::english;
  EXPECT_EQ(model._frameCount, 48) << "the whole clip came in";
  EXPECT_FALSE(shown.window.viewer()->picture().isNull());
  EXPECT_EQ(shown.window.viewer()->caption(), english ? "Color Correct" : "Réglage couleur");
  EXPECT_EQ(shown.window.transport()->timeBar()->keys(), (std::set<int>{4, 24, 40}));
  EXPECT_TRUE(shown.window.isWindowModified());
}

// The example world with a Blur added beside the graph and selected: the viewer says it isn't
// wired and how to wire it.
void screenshotOfANodeWithNothingIn(AppLanguage language) {
  Look look(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel::Options options = test::tempModelOptions(dir, clock);
  options.blankStart = false;
  AppModel model(options);
  ASSERT_TRUE(model.engine) << model._status;
  model.select(model.addNode(*NodeKind::find("blur"), {330, 290}));
  Shown shown(model, *clock);
  EXPECT_TRUE(save(shown.window.grab().toImage(), "unconnected_node" + suffix(language)));
  const bool english = language == AppLanguage::english;
  EXPECT_TRUE(shown.window.viewer()->picture().isNull());
  EXPECT_TRUE(shown.window.viewer()->blankText().startsWith(english ? "\"Blur\" is not connected" : "« Blur » n'est pas branché"));
}

// The Aide menu open under its title, then the keys it lists in their panel beside the window.
void screenshotOfTheHelpMenu(AppLanguage language) {
  Look look(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(test::tempModelOptions(dir, clock));
  Shown shown(model, *clock);
  MainWindow& window = shown.window;
  QMenu* help = window.menuBar()->findChild<QMenu*>("helpMenu");
  ASSERT_NE(help, nullptr);
  help->ensurePolished();
  help->resize(help->sizeHint());
  QImage shot = window.grab().toImage();
  const QImage menu = help->grab().toImage();
  const QPoint at = window.menuBar()->mapTo(&window, window.menuBar()->actionGeometry(help->menuAction()).bottomLeft());
  QPainter paint(&shot);
  paint.drawImage(at, menu);
  paint.setPen(QColor(0x55, 0x55, 0x5c));
  paint.drawRect(QRect(at, menu.size()).adjusted(-1, -1, 0, 0));
  paint.end();
  EXPECT_TRUE(save(shot, "help_menu" + suffix(language)));

  QDialog* keys = showShortcuts(&window);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(keys));
  EXPECT_TRUE(save(keys->grab().toImage(), "shortcuts" + suffix(language)));
  const bool english = language == AppLanguage::english;
  auto* tree = keys->findChild<QTreeWidget*>("shortcuts");
  ASSERT_NE(tree, nullptr);
  EXPECT_EQ(tree->topLevelItem(0)->text(0), english ? "Anywhere in the window" : "Partout dans la fenêtre");
  keys->close();
  QDialog* folders = showFolders(&window, AppPaths::shared());
  ASSERT_TRUE(QTest::qWaitForWindowExposed(folders));
  EXPECT_TRUE(save(folders->grab().toImage(), "folders" + suffix(language)));
  folders->close();
}
}  // namespace

// The view menu's OpenColorIO submenu for a config written here, its graded view chosen: the
// view menu, the submenu and its display's views laid out side by side over the window.
void screenshotOfTheOcioMenu(AppLanguage language) {
  Look look(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(test::tempModelOptions(dir, clock));
  model.setOcioConfig(test::writeText(dir.path / "config.ocio", test::kOcioConfig));
  model.setOcioView(OcioView{"Moniteur", "Film"});
  Shown shown(model, *clock);
  MainWindow& window = shown.window;
  QMenu* ocio = window.menuBar()->findChild<QMenu*>("ocioMenu");
  ASSERT_NE(ocio, nullptr);
  QMenu* view = qobject_cast<QMenu*>(ocio->parent());
  ASSERT_NE(view, nullptr);
  emit ocio->aboutToShow();
  QMenu* display = ocio->findChild<QMenu*>();
  ASSERT_NE(display, nullptr);
  QImage shot = window.grab().toImage();
  QPainter paint(&shot);
  paint.setPen(QColor(0x55, 0x55, 0x5c));
  QPoint at = window.menuBar()->mapTo(&window, window.menuBar()->actionGeometry(view->menuAction()).bottomLeft());
  for (QMenu* menu : {view, ocio, display}) {
    menu->ensurePolished();
    menu->resize(menu->sizeHint());
    const QImage image = menu->grab().toImage();
    paint.drawImage(at, image);
    paint.drawRect(QRect(at, image.size()).adjusted(-1, -1, 0, 0));
    at += QPoint(image.width() + 2, 24);
  }
  paint.end();
  EXPECT_TRUE(save(shot, "ocio_menu" + suffix(language)));
}

TEST(FirstHour, EmptyProjectInFrench) { screenshotOfTheEmptyProject(AppLanguage::french); }
TEST(FirstHour, EmptyProjectInEnglish) { screenshotOfTheEmptyProject(AppLanguage::english); }
TEST(FirstHour, ImportedClipInFrench) { screenshotOfAnImportedClip(AppLanguage::french); }
TEST(FirstHour, ImportedClipInEnglish) { screenshotOfAnImportedClip(AppLanguage::english); }
TEST(FirstHour, NodeWithNothingInInFrench) { screenshotOfANodeWithNothingIn(AppLanguage::french); }
TEST(FirstHour, NodeWithNothingInInEnglish) { screenshotOfANodeWithNothingIn(AppLanguage::english); }
TEST(FirstHour, HelpMenuInFrench) { screenshotOfTheHelpMenu(AppLanguage::french); }
TEST(FirstHour, HelpMenuInEnglish) { screenshotOfTheHelpMenu(AppLanguage::english); }
TEST(FirstHour, OcioMenuInFrench) { screenshotOfTheOcioMenu(AppLanguage::french); }
TEST(FirstHour, OcioMenuInEnglish) { screenshotOfTheOcioMenu(AppLanguage::english); }
