// Screenshots of the whole window, taken on a real X server (Xvfb) and saved for people to look
// at: the example world, an imported clip with its curve editor, the wipe comparison, the mask
// tools with a drawn shape, a render under way with its queue and the list of worlds with its
// menu, in each language.
#include <gtest/gtest.h>

#include <QDir>
#include <QMenu>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>
#include <QTabBar>
#include <QToolButton>
#include <QTest>
#include <QTreeWidget>
#include <cstdlib>

#include "screenshot_look.h"
#include "../platform/temp_dir.h"
#include "../document/temp_model.h"
#include "../shell/shell_app.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "media/video_source.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/curve_editor_widget.h"
#include "shell/dark_theme.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/render_queue_panel.h"
#include "shell/roto_overlay.h"
#include "shell/roto_tool_bar.h"
#include "shell/viewer_widget.h"
#include "shell/worlds_panel.h"

using namespace ombrik;

namespace {
using DarkTheme = test::ScreenshotLook;
using test::saveScreenshot;

// Spread of the grey levels: a blank or single-colour window has none.
double greyVariance(const QImage& image) {
  double sum = 0, sum2 = 0;
  const int n = image.width() * image.height();
  for (int y = 0; y < image.height(); ++y)
    for (int x = 0; x < image.width(); ++x) {
      const double g = qGray(image.pixel(x, y));
      sum += g;
      sum2 += g * g;
    }
  const double mean = sum / n;
  return sum2 / n - mean * mean;
}
}  // namespace

// The whole window on the example world, saved for people to look at: the picture, the graph
// and the settings of the selected node must all be there.
TEST(MainWindow, ScreenshotOfTheExampleWorld) {
  DarkTheme theme;
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(test::showSettled(window, *clock));

  const QImage shot = window.grab().toImage();
  EXPECT_TRUE(saveScreenshot(shot, "main_window.png"));

  EXPECT_GT(greyVariance(shot), 100) << "the window shows more than a flat colour";
  ASSERT_FALSE(window.viewer()->picture().isNull()) << "the viewer shows a rendered picture";
  const QImage viewer = window.viewer()->grab().toImage();
  EXPECT_GT(greyVariance(viewer), 100) << "the picture in the viewer has content";
  EXPECT_FALSE(window.inspector()->row("amount") == nullptr) << "the selected node's settings are listed";
  EXPECT_GE(model.nodeThumbs.size(), 5u) << "the nodes show their pictures";

}

TEST(MainWindow, ScreenshotOfAnImportedClip) {
  DarkTheme theme;
  TempDir dir;
  const std::filesystem::path clip = dir.path / "rush.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc2=size=960x540:rate=25 -frames:v 30 -c:v libx264 "
                         "-pix_fmt yuv420p '" + clip.string() + "'").c_str()), 0);
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.blankStart = true, .scheduler = clock,
                                   .defaultsFile = (dir.path / "defaults.conf").string(), .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  const auto world = model.createWorld(clip);
  ASSERT_TRUE(world) << model._status;
  model.openBatch(*world);
  // A colour node with an animated exposure, so the curve editor has something to show.
  const Uuid color = model.addNode(NodeKind::color(), {400, 140});
  model.intercalate(color, model._edges.front().id);
  model.setKey(color, "exposure", 0, -0.5);
  model.setKey(color, "exposure", 29, 0.8);
  model.select(color);
  model.inspectedID = color;
  model.seekFrame(12);

  MainWindow window(model);
  window.resize(1280, 800);
  window.show();
  window.toggleCurveEditor();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  test::settleSeeks(*clock, model);
  clock->advance(1.0);  // the pump hands the frame over, the render runs, then the full one
  window.refresh();
  QCoreApplication::processEvents();

  const QImage shot = window.grab().toImage();
  EXPECT_TRUE(saveScreenshot(shot, "main_window_clip.png"));
  EXPECT_EQ(model._currentFrame, 12);
  EXPECT_EQ(model._frameCount, 30);
  EXPECT_GT(greyVariance(window.viewer()->grab().toImage()), 100) << "the clip's frame is on screen";
  EXPECT_TRUE(window.curveEditor()->isVisible());

  // The wipe: the rush on the left of the line, the graded result on the right.
  model.setCompareStyle(1);
  model.setCompareMode(true);
  model.setWipe(0.45);
  window.refresh();
  QCoreApplication::processEvents();
  const QImage wipe = window.grab().toImage();
  EXPECT_TRUE(saveScreenshot(wipe, "main_window_wipe.png"));
  const QImage wiped = window.viewer()->picture();
  ASSERT_FALSE(wiped.isNull());
  auto shownNow = [&] {
    window.refresh();
    return window.viewer()->picture();
  };
  model.setCompareStyle(0);
  model.toggleBefore();
  const QImage rush = shownNow();
  model.setCompareMode(false);
  const QImage result = shownNow();
  ASSERT_EQ(rush.size(), wiped.size());
  ASSERT_EQ(result.size(), wiped.size());
  // Mean grey difference of two pictures over columns x0 ... x1.
  auto differ = [](const QImage& a, const QImage& b, int x0, int x1) {
    double sum = 0;
    for (int y = 0; y < a.height(); ++y)
      for (int x = x0; x < x1; ++x) sum += std::abs(qGray(a.pixel(x, y)) - qGray(b.pixel(x, y)));
    return sum / (double(x1 - x0) * a.height());
  };
  const int w = wiped.width(), line = int(0.45 * w);
  EXPECT_GT(differ(rush, result, 0, w), 3) << "the graded result differs from its rush";
  EXPECT_LT(differ(wiped, rush, 0, line - 2), 1.5) << "left of the wipe: the rush";
  EXPECT_LT(differ(wiped, result, line + 2, w), 1.5) << "right of the wipe: the result";
  const QColor amber = wiped.pixelColor(line, wiped.height() / 2);
  EXPECT_GT(amber.red(), 200);
  EXPECT_LT(amber.blue(), 110) << "the wipe's line";

}

namespace {
// The example world's mask node with a second mask drawn by hand in the viewer: a closed, curved
// Bézier beside the example's ellipse, one of its points selected to show its tangents.
void screenshotOfTheMaskTools(AppLanguage language, const char* file) {
  DarkTheme theme(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  std::optional<Uuid> mask;
  for (const auto& n : model._nodes)
    if (n.kind->id == "mask") mask = n.id;
  ASSERT_TRUE(mask);
  model.select(*mask);
  model.inspectedID = *mask;
  MainWindow window(model);
  window.resize(1280, 800);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  auto settle = [&] {
    clock->advance(1.0);
    window.refresh();
    QCoreApplication::processEvents();  // the tool bar takes its room above the picture
    window.refresh();
  };
  settle();

  QTest::mouseClick(window.rotoToolBar()->findChild<QToolButton*>("rotoTool:bezier"), Qt::LeftButton);
  ViewerWidget* viewer = window.viewer();
  auto at = [&](double x, double y) { return RotoOverlay::toView({x, y}, viewer->pictureRect()).toPoint(); };
  // Each point pressed and pulled a little: its tangents come out with the drag.
  const double points[][4] = {{0.80, 0.22, 0.07, 0}, {0.94, 0.48, 0, 0.11}, {0.80, 0.78, -0.07, 0}, {0.67, 0.50, 0, -0.11}};
  for (const auto& p : points) {
    QTest::mousePress(viewer, Qt::LeftButton, {}, at(p[0], p[1]));
    for (int k = 1; k <= 3; ++k) QTest::mouseMove(viewer, at(p[0] + p[2] * k / 3, p[1] + p[3] * k / 3));
    QTest::mouseRelease(viewer, Qt::LeftButton, {}, at(p[0] + p[2], p[1] + p[3]));
  }
  QTest::mouseClick(viewer, Qt::LeftButton, {}, at(0.80, 0.22));  // closes the outline
  QTest::mouseClick(viewer, Qt::LeftButton, {}, at(0.94, 0.48));  // selects a point
  settle();

  QImage shot = window.grab().toImage();
  // The tracking keys menu, drawn open under its button.
  auto* keys = window.rotoToolBar()->findChild<QToolButton*>("trackKeys");
  ASSERT_NE(keys, nullptr);
  keys->menu()->ensurePolished();
  keys->menu()->resize(keys->menu()->sizeHint());
  const QImage open = keys->menu()->grab().toImage();
  const QPoint under = keys->mapTo(&window, QPoint(0, keys->height() + 2));
  QPainter paint(&shot);
  paint.drawImage(under, open);
  paint.setPen(QColor(0x55, 0x55, 0x5c));
  paint.drawRect(QRect(under, open.size()).adjusted(-1, -1, 0, 0));
  paint.end();
  EXPECT_TRUE(saveScreenshot(shot, file));
  const Node& node = *model.nodeByID(*mask);
  EXPECT_TRUE(node.shapeClosed);
  EXPECT_EQ(node.shape.size(), 4u);
  EXPECT_EQ(node.allMasks().size(), 2u) << "the ellipse and the Bézier";
  EXPECT_TRUE(window.rotoToolBar()->isVisible());
  auto* tabs = window.inspector()->findChild<QTabBar*>("maskTabs");
  ASSERT_NE(tabs, nullptr);
  EXPECT_EQ(tabs->count(), 2);
  EXPECT_EQ(tabs->tabText(1), "Mask 02");
  const QString move = window.rotoToolBar()->findChild<QToolButton*>("rotoTool:move")->text();
  EXPECT_EQ(move, language == AppLanguage::english ? "Move" : "Déplacer");

}
}  // namespace

TEST(MainWindow, ScreenshotOfTheMaskToolsInFrench) { screenshotOfTheMaskTools(AppLanguage::french, "roto_fr.png"); }

TEST(MainWindow, ScreenshotOfTheMaskToolsInEnglish) { screenshotOfTheMaskTools(AppLanguage::english, "roto_en.png"); }

namespace {
// The example world rendering as the second of three queued worlds: the bar in the status line,
// the output node's render section, and the queue panel over the graph with a world done, the
// one running and one waiting.
void screenshotOfARender(AppLanguage language, const char* file) {
  DarkTheme theme(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  const Uuid example = *model._currentBatchID;
  std::vector<Uuid> worlds;
  for (const char* name : {"Plan_010", "Plan_030"}) {
    worlds.push_back(model.makeWorld(*model.addMedia(SampleImage::make(64, 36), name), name));
    model.openBatch(worlds.back());
    model.setRenderFolder(*model.outputNode(), dir.path / "Rendus");
  }
  auto advanceUntil = [&](auto done) {
    for (int i = 0; i < 5000 && !done(); ++i) clock->advance(0.005);
  };
  clock->jobSeconds = 0.01;  // one frame per step of half that
  model.enqueueRender({worlds[0]});
  advanceUntil([&] { return !model.rendering; });
  // The example world renders at full size, a second a frame on the processor: a short shot of it.
  model.openBatch(example);
  model._frameCount = 12;
  model.setRenderFolder(*model.outputNode(), dir.path / "Rendus");
  model.enqueueRender({example, worlds[1]});
  advanceUntil([&] { return model.delivery.renderProgress > 0.3; });
  ASSERT_EQ(model._currentBatchID, example);
  model.inspectedID = model.outputNode();
  model.select(*model.outputNode());

  MainWindow window(model);
  window.resize(1280, 800);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  RenderQueuePanel* panel = window.showRenderQueue();
  panel->resize(620, 250);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(panel));
  window.refresh();
  QCoreApplication::processEvents();
  window.refresh();

  // The panel is a window of its own: it is laid over the window's picture where it would stand.
  QImage shot = window.grab().toImage();
  const QImage over = panel->grab().toImage();
  const QPoint at(24, shot.height() - over.height() - 60);
  QPainter paint(&shot);
  paint.drawImage(at, over);
  paint.setPen(QColor(0x55, 0x55, 0x5c));
  paint.drawRect(QRect(at, over.size()).adjusted(-1, -1, 0, 0));
  paint.end();
  EXPECT_TRUE(saveScreenshot(shot, file));

  EXPECT_FALSE(window.renderProgress()->isHidden());
  EXPECT_GT(window.renderProgress()->value(), 300);
  const bool english = language == AppLanguage::english;
  auto* button = window.inspector()->findChild<QPushButton*>("renderShot");
  ASSERT_NE(button, nullptr);
  EXPECT_TRUE(button->isVisible());
  EXPECT_EQ(button->text(), english ? "Cancel render" : "Annuler le rendu");
  QTreeWidget* jobs = panel->jobs();
  ASSERT_EQ(jobs->topLevelItemCount(), 3);
  EXPECT_EQ(jobs->topLevelItem(0)->text(1), english ? "Done" : "Terminé");
  EXPECT_EQ(jobs->topLevelItem(1)->text(1), english ? "Rendering" : "En cours");
  EXPECT_EQ(jobs->topLevelItem(2)->text(1), english ? "Waiting" : "En attente");
  model.stopAllRenders();
  clock->advance(1);

}
}  // namespace

TEST(MainWindow, ScreenshotOfARenderInFrench) { screenshotOfARender(AppLanguage::french, "render_fr.png"); }

TEST(MainWindow, ScreenshotOfARenderInEnglish) { screenshotOfARender(AppLanguage::english, "render_en.png"); }

namespace {
// The list of worlds docked on the left: a folder of two shots, worlds with their LUT badges, the
// example world open, and the right-click menu of one world under the list with its LUT choices.
void screenshotOfTheWorldsPanel(AppLanguage language, const char* file) {
  DarkTheme theme(language);
  TempDir dir;
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data"});
  ASSERT_TRUE(model.engine) << model._status;
  std::vector<Uuid> worlds;
  for (const char* name : {"Plan_010", "Plan_020", "Plan_030", "Interview_A", "Drone_04"})
    worlds.push_back(model.makeWorld(*model.addMedia(SampleImage::make(64, 36), name), name));
  model.groupWorlds({worlds[0], worlds[1]}, "Scène 12");
  model._renameGroupRequest.reset();
  model.setWorldLUT(worlds[0], "auto:slog3");
  model.setWorldLUT(worlds[3], "auto:logc3");
  model.setWorldLUT(worlds[4], (dir.path / "drone.cube").string());

  MainWindow window(model);
  window.resize(1280, 800);
  WorldsPanel* panel = window.worldsPanel();
  panel->show();
  window.resizeDocks({panel}, {250}, Qt::Horizontal);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  clock->advance(1.0);
  window.refresh();
  QTreeWidget* tree = panel->tree();
  tree->setCurrentItem(panel->itemOf(worlds[3]));
  window.refresh();
  QCoreApplication::processEvents();

  QImage shot = window.grab().toImage();
  const std::unique_ptr<QMenu> menu(panel->selectionMenu(&window));
  menu->ensurePolished();
  menu->resize(menu->sizeHint());
  const QImage over = menu->grab().toImage();
  // Under the last line, so that no line is hidden.
  const QRect last = tree->visualItemRect(tree->topLevelItem(tree->topLevelItemCount() - 1));
  const QPoint at = tree->viewport()->mapTo(&window, QPoint(40, last.bottom() + 24));
  // The LUT submenu beside its entry, as it opens.
  QMenu* lut = menu->findChild<QMenu*>("worldLut");
  ASSERT_NE(lut, nullptr);
  lut->ensurePolished();
  lut->resize(lut->sizeHint());
  const QImage choices = lut->grab().toImage();
  const QPoint beside = at + QPoint(over.width() - 4, menu->actionGeometry(lut->menuAction()).top() - 4);
  QPainter paint(&shot);
  paint.setPen(QColor(0x55, 0x55, 0x5c));
  for (const auto& [image, where] : {std::pair{over, at}, std::pair{choices, beside}}) {
    paint.drawImage(where, image);
    paint.drawRect(QRect(where, image.size()).adjusted(-1, -1, 0, 0));
  }
  paint.end();
  EXPECT_TRUE(saveScreenshot(shot, file));

  const bool english = language == AppLanguage::english;
  EXPECT_EQ(panel->windowTitle(), english ? "Worlds" : "Mondes");
  ASSERT_EQ(tree->topLevelItemCount(), 5) << "the folder, then the example world and three worlds";
  EXPECT_EQ(tree->topLevelItem(0)->childCount(), 2);
  EXPECT_EQ(tree->topLevelItem(0)->child(0)->text(1), "S-Log3");
  EXPECT_EQ(tree->topLevelItem(3)->text(1), "LogC3");
  EXPECT_TRUE(tree->topLevelItem(1)->font(0).bold()) << "the example world is open";
  EXPECT_EQ(menu->findChild<QAction*>("enterWorld")->text(), english ? "Enter the shot" : "Entrer dans le rush");
  EXPECT_EQ(lut->findChild<QAction*>("chooseLutFile")->text(), english ? ".cube file…" : "Fichier .cube…");
  EXPECT_EQ(menu->findChild<QAction*>("packWorld")->text(),
            english ? "Pack the world (tree + shots)…" : "Rassembler le monde (arbre + rushs)…");
}
}  // namespace

TEST(MainWindow, ScreenshotOfTheWorldsPanelInFrench) { screenshotOfTheWorldsPanel(AppLanguage::french, "worlds_fr.png"); }

TEST(MainWindow, ScreenshotOfTheWorldsPanelInEnglish) { screenshotOfTheWorldsPanel(AppLanguage::english, "worlds_en.png"); }
