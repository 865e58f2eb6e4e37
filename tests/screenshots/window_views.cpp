// The whole window: the example world, an imported clip with its curve editor and the wipe, the mask
// tools with a drawn shape, a render under way with its queue, and the list of worlds with its menu.
#include <QProgressBar>
#include <QPushButton>
#include <QTabBar>
#include <QToolButton>
#include <QTreeWidget>

#include "engine/source_picture.h"
#include "media/video_source.h"
#include "screenshot_views.h"
#include "shell/curve_editor_widget.h"
#include "shell/inspector_widget.h"
#include "shell/render_queue_panel.h"
#include "shell/roto_overlay.h"
#include "shell/roto_tool_bar.h"
#include "shell/viewer_widget.h"
#include "shell/worlds_panel.h"

namespace ombrik::test {
namespace {
// Spread of the grey levels: a blank or single-colour picture has none.
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

// Mean grey difference of two pictures over columns x0 ... x1.
double differ(const QImage& a, const QImage& b, int x0, int x1) {
  double sum = 0;
  for (int y = 0; y < a.height(); ++y)
    for (int x = x0; x < x1; ++x) sum += std::abs(qGray(a.pixel(x, y)) - qGray(b.pixel(x, y)));
  return sum / (double(x1 - x0) * a.height());
}
}  // namespace

// The picture, the graph and the settings of the selected node must all be there.
void exampleWorldView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  const QImage picture = window.grab().toImage();
  shot.save(picture, "main_window");
  EXPECT_GT(greyVariance(picture), 100) << "the window shows more than a flat colour";
  ASSERT_FALSE(window.viewer()->picture().isNull()) << "the viewer shows a rendered picture";
  EXPECT_GT(greyVariance(window.viewer()->grab().toImage()), 100) << "the picture in the viewer has content";
  EXPECT_NE(window.inspector()->row("amount"), nullptr) << "the selected node's settings are listed";
  EXPECT_GE(model.nodeThumbs.size(), 5u) << "the nodes show their pictures";
}

// A clip with a colour node whose exposure is animated, the curve editor open; then the wipe: the
// rush on the left of the line, the graded result on the right.
void clipAndWipeView(Shot& shot) {
  const std::filesystem::path clip = shot.dir.path / "rush.mp4";
  ASSERT_EQ(std::system(("ffmpeg -v error -y -f lavfi -i testsrc2=size=960x540:rate=25 -frames:v 30 -c:v libx264 "
                         "-pix_fmt yuv420p '" + clip.string() + "'").c_str()), 0);
  AppModel model(shot.blank());
  ASSERT_TRUE(model.engine) << model._status;
  const auto world = model.createWorld(clip);
  ASSERT_TRUE(world) << model._status;
  model.openBatch(*world);
  const Uuid color = model.addNode(NodeKind::color(), {400, 140});
  model.intercalate(color, model._edges.front().id);
  model.setKey(color, "exposure", 0, -0.5);
  model.setKey(color, "exposure", 29, 0.8);
  model.select(color);
  model.inspectedID = color;
  model.seekFrame(12);
  MainWindow window(model);
  window.toggleCurveEditor();
  ASSERT_TRUE(shot.show(window, model));
  shot.save(window.grab().toImage(), "main_window_clip");
  EXPECT_EQ(model._currentFrame, 12);
  EXPECT_EQ(model._frameCount, 30);
  EXPECT_GT(greyVariance(window.viewer()->grab().toImage()), 100) << "the clip's frame is on screen";
  EXPECT_TRUE(window.curveEditor()->isVisible());

  model.setCompareStyle(1);
  model.setCompareMode(true);
  model.setWipe(0.45);
  auto shownNow = [&] {
    window.refresh();
    QCoreApplication::processEvents();
    return window.viewer()->picture();
  };
  const QImage wiped = shownNow();
  shot.save(window.grab().toImage(), "main_window_wipe");
  ASSERT_FALSE(wiped.isNull());
  model.setCompareStyle(0);
  model.toggleBefore();
  const QImage rush = shownNow();
  model.setCompareMode(false);
  const QImage result = shownNow();
  ASSERT_EQ(rush.size(), wiped.size());
  ASSERT_EQ(result.size(), wiped.size());
  const int w = wiped.width(), line = int(0.45 * w);
  EXPECT_GT(differ(rush, result, 0, w), 3) << "the graded result differs from its rush";
  EXPECT_LT(differ(wiped, rush, 0, line - 2), 1.5) << "left of the wipe: the rush";
  EXPECT_LT(differ(wiped, result, line + 2, w), 1.5) << "right of the wipe: the result";
  const QColor amber = wiped.pixelColor(line, wiped.height() / 2);
  EXPECT_GT(amber.red(), 200) << "the wipe's line";
  EXPECT_LT(amber.blue(), 110) << "the wipe's line";
}

// The example's mask node with a second mask drawn by hand in the viewer: a closed, curved Bézier
// beside the ellipse, one of its points selected to show its tangents, the tracking keys menu open.
void maskToolsView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  const Uuid mask = firstOfKind(model, "mask");
  model.select(mask);
  model.inspectedID = mask;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));  // the tool bar takes its room above the picture

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
  shot.clock->advance(1.0);
  Shot::settle(window);

  QImage picture = window.grab().toImage();
  auto* keys = window.rotoToolBar()->findChild<QToolButton*>("trackKeys");
  ASSERT_NE(keys, nullptr);
  paintPopup(picture, grabbed(*keys->menu()), keys->mapTo(&window, QPoint(0, keys->height() + 2)));
  shot.save(picture, "roto");
  const Node& node = *model.nodeByID(mask);
  EXPECT_TRUE(node.shapeClosed);
  EXPECT_EQ(node.shape.size(), 4u);
  EXPECT_EQ(node.allMasks().size(), 2u) << "the ellipse and the Bézier";
  EXPECT_TRUE(window.rotoToolBar()->isVisible());
  auto* tabs = window.inspector()->findChild<QTabBar*>("maskTabs");
  ASSERT_NE(tabs, nullptr);
  EXPECT_EQ(tabs->count(), 2);
  EXPECT_EQ(tabs->tabText(1), "Mask 02");
  EXPECT_EQ(window.rotoToolBar()->findChild<QToolButton*>("rotoTool:move")->text(), shot.say("Move", "Déplacer"));
}

// The example world rendering as the second of three queued worlds: the bar in the status line, the
// output node's render section, and the queue panel with a world done, the one running and one waiting.
void renderView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  ManualScheduler& clock = *shot.clock;
  const Uuid example = *model._currentBatchID;
  std::vector<Uuid> worlds;
  for (const char* name : {"Plan_010", "Plan_030"}) {
    worlds.push_back(model.makeWorld(*model.addMedia(SampleImage::make(64, 36), name), name));
    model.openBatch(worlds.back());
    model.setRenderFolder(*model.outputNode(), shot.dir.path / "Rendus");
  }
  auto advanceUntil = [&](auto done) {
    for (int i = 0; i < 5000 && !done(); ++i) clock.advance(0.005);
  };
  clock.jobSeconds = 0.01;  // one frame per step of half that
  model.enqueueRender({worlds[0]});
  advanceUntil([&] { return !model.rendering; });
  // The example world renders at full size, a second a frame on the processor: a short shot of it.
  model.openBatch(example);
  model._frameCount = 12;
  model.setRenderFolder(*model.outputNode(), shot.dir.path / "Rendus");
  model.enqueueRender({example, worlds[1]});
  advanceUntil([&] { return model.delivery.renderProgress > 0.3; });
  ASSERT_EQ(model._currentBatchID, example);
  model.inspectedID = model.outputNode();
  model.select(*model.outputNode());

  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model, false));
  RenderQueuePanel* panel = window.showRenderQueue();
  panel->resize(620, 250);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(panel));
  Shot::settle(window);
  // The panel is a window of its own: it is laid over the window's picture where it would stand.
  QImage picture = window.grab().toImage();
  const QImage over = panel->grab().toImage();
  paintPopup(picture, over, QPoint(24, picture.height() - over.height() - 60));
  shot.save(picture, "render");

  EXPECT_FALSE(window.renderProgress()->isHidden());
  EXPECT_GT(window.renderProgress()->value(), 300);
  auto* button = window.inspector()->findChild<QPushButton*>("renderShot");
  ASSERT_NE(button, nullptr);
  EXPECT_TRUE(button->isVisible());
  EXPECT_EQ(button->text(), shot.say("Cancel render", "Annuler le rendu"));
  QTreeWidget* jobs = panel->jobs();
  ASSERT_EQ(jobs->topLevelItemCount(), 3);
  EXPECT_EQ(jobs->topLevelItem(0)->text(1), shot.say("Done", "Terminé"));
  EXPECT_EQ(jobs->topLevelItem(1)->text(1), shot.say("Rendering", "En cours"));
  EXPECT_EQ(jobs->topLevelItem(2)->text(1), shot.say("Waiting", "En attente"));
  model.stopAllRenders();
  clock.advance(1);
}

// The list of worlds docked on the left: a folder of two shots, worlds with their LUT badges, the
// example world open, and one world's right-click menu under the list with its LUT choices beside.
void worldsPanelView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  std::vector<Uuid> worlds;
  for (const char* name : {"Plan_010", "Plan_020", "Plan_030", "Interview_A", "Drone_04"})
    worlds.push_back(model.makeWorld(*model.addMedia(SampleImage::make(64, 36), name), name));
  model.groupWorlds({worlds[0], worlds[1]}, "Scène 12");
  model._renameGroupRequest.reset();
  model.setWorldLUT(worlds[0], "auto:slog3");
  model.setWorldLUT(worlds[3], "auto:logc3");
  model.setWorldLUT(worlds[4], (shot.dir.path / "drone.cube").string());

  MainWindow window(model);
  WorldsPanel* panel = window.worldsPanel();
  panel->show();
  window.resizeDocks({panel}, {250}, Qt::Horizontal);
  ASSERT_TRUE(shot.show(window, model));
  QTreeWidget* tree = panel->tree();
  tree->setCurrentItem(panel->itemOf(worlds[3]));
  Shot::settle(window);

  QImage picture = window.grab().toImage();
  const std::unique_ptr<QMenu> menu(panel->selectionMenu(&window));
  QMenu* lut = menu->findChild<QMenu*>("worldLut");
  ASSERT_NE(lut, nullptr);
  const QImage list = grabbed(*menu);
  // Under the last line, so that no line is hidden.
  const QRect last = tree->visualItemRect(tree->topLevelItem(tree->topLevelItemCount() - 1));
  const QPoint at = paintPopup(picture, list, tree->viewport()->mapTo(&window, QPoint(40, last.bottom() + 24)));
  paintPopup(picture, grabbed(*lut), at + QPoint(list.width() - 4, menu->actionGeometry(lut->menuAction()).top() - 4));
  shot.save(picture, "worlds");

  EXPECT_EQ(panel->windowTitle(), shot.say("Worlds", "Mondes"));
  ASSERT_EQ(tree->topLevelItemCount(), 5) << "the folder, then the example world and three worlds";
  EXPECT_EQ(tree->topLevelItem(0)->childCount(), 2);
  EXPECT_EQ(tree->topLevelItem(0)->child(0)->text(1), "S-Log3");
  EXPECT_EQ(tree->topLevelItem(3)->text(1), "LogC3");
  EXPECT_TRUE(tree->topLevelItem(1)->font(0).bold()) << "the example world is open";
  EXPECT_EQ(menu->findChild<QAction*>("enterWorld")->text(), shot.say("Enter the shot", "Entrer dans le rush"));
  EXPECT_EQ(lut->findChild<QAction*>("chooseLutFile")->text(), shot.say(".cube file…", "Fichier .cube…"));
  EXPECT_EQ(menu->findChild<QAction*>("packWorld")->text(),
            shot.say("Pack the world (tree + shots)…", "Rassembler le monde (arbre + rushs)…"));
}

}  // namespace ombrik::test
