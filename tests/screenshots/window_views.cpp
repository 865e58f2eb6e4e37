// The whole window: the example world and a node not wired, an imported clip with its curve editor and
// the wipe, the mask tools with a drawn shape, a render under way with its queue, the list of worlds.
#include <QProgressBar>
#include <QToolButton>
#include <QTreeWidget>

#include "engine/source_picture.h"
#include "media/video_source.h"
#include "screenshot_views.h"
#include "shell/curve_editor_widget.h"
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

// The picture, the graph and the settings of the selected node; a Blur added beside the graph and
// selected: the viewer says it isn't wired and how to wire it. Then the mask node with a second mask
// drawn by hand in the viewer: a closed, curved Bézier beside the ellipse, one of its points selected
// to show its tangents, the tracking keys menu open.
void exampleWorldView(Shot& shot) {
  AppModel model(shot.example());
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.snapOnce(window, "main_window");
  ASSERT_FALSE(window.viewer()->picture().isNull()) << "the viewer shows a rendered picture";
  EXPECT_GT(greyVariance(window.viewer()->grab().toImage()), 100) << "the picture in the viewer has content";
  EXPECT_GE(model.nodeThumbs.size(), 5u) << "the nodes show their pictures";

  const Uuid blur = model.addNode(*NodeKind::find("blur"), {330, 290});
  model.select(blur);
  shot.snap(window, "unconnected_node");
  EXPECT_TRUE(window.viewer()->picture().isNull()) << "nothing wired into the selected node";
  model.deleteNode(blur);

  const Uuid mask = firstOfKind(model, "mask");
  inspect(model, mask);
  shot.clock->advance(1.0);
  Shot::settle(window);  // the tool bar takes its room above the picture
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
  auto* keys = window.rotoToolBar()->findChild<QToolButton*>("trackKeys");
  ASSERT_NE(keys, nullptr);
  shot.saveWithMenu(window, "roto", *keys->menu(), keys->mapTo(&window, QPoint(0, keys->height() + 2)));
  const Node& node = *model.nodeByID(mask);
  EXPECT_TRUE(node.shapeClosed) << "the clicks reached the viewer";
  EXPECT_EQ(node.shape.size(), 4u);
}

// A clip imported as a world, a colour node keyed at three frames and selected: the picture with its
// name, the keys on the time bar, the title of a project with unsaved changes; then the curve editor
// open, and the wipe: the rush on the left of the line, the graded result on the right.
void clipView(Shot& shot) {
  const std::filesystem::path clip = shot.clip("Plage.mp4", "testsrc2", 48);
  AppModel model(shot.blank());
  const std::vector<Uuid> worlds = model.importAsWorlds({clip});
  ASSERT_EQ(worlds.size(), 1u) << model._status;
  model.openBatch(worlds[0]);
  const Uuid color = model.addNode(NodeKind::color(), {400, 140});
  model.intercalate(color, model._edges.front().id);
  for (const auto& [frame, value] : {std::pair{4, -0.4}, std::pair{24, 0.6}, std::pair{40, 0.1}})
    model.setKey(color, "exposure", frame, value);
  inspect(model, color);
  model.seekFrame(24);
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  shot.snap(window, "imported_clip");
  EXPECT_GT(greyVariance(window.viewer()->grab().toImage()), 100) << "the clip's frame is on screen";
  window.toggleCurveEditor();
  shot.snapOnce(window, "main_window_clip");
  EXPECT_TRUE(window.curveEditor()->isVisible());

  model.setCompareStyle(1);
  model.setCompareMode(true);
  model.setWipe(0.45);
  auto shownNow = [&] { return Shot::settle(window), window.viewer()->picture(); };
  const QImage wiped = shownNow();
  shot.snapOnce(window, "main_window_wipe");
  ASSERT_FALSE(wiped.isNull());
  model.setCompareStyle(0);
  model.toggleBefore();
  const QImage rush = shownNow();
  model.setCompareMode(false);
  const QImage result = shownNow();
  ASSERT_TRUE(rush.size() == wiped.size() && result.size() == wiped.size());
  const int w = wiped.width(), line = int(0.45 * w);
  EXPECT_GT(differ(rush, result, 0, w), 3) << "the graded result differs from its rush";
  EXPECT_LT(differ(wiped, rush, 0, line - 2), 1.5) << "left of the wipe: the rush";
  EXPECT_LT(differ(wiped, result, line + 2, w), 1.5) << "right of the wipe: the result";
  const QColor amber = wiped.pixelColor(line, wiped.height() / 2);
  EXPECT_GT(amber.red(), 200) << "the wipe's line";
  EXPECT_LT(amber.blue(), 110) << "the wipe's line";
}

// The example world rendering as the second of three queued worlds: the bar in the status line, the
// output node's render section, and the queue panel with a world done, one running, one waiting. Then
// the list of worlds docked on the left: a folder of two shots, worlds with their LUT badges, the
// example world open, and one world's right-click menu under the list with its LUT choices beside.
void worldsView(Shot& shot) {
  AppModel model(shot.example());
  const Uuid example = *model._currentBatchID;
  std::vector<Uuid> worlds;
  auto make = [&](std::initializer_list<const char*> names) {
    for (const char* name : names) worlds.push_back(model.makeWorld(*model.addMedia(SampleImage::make(64, 36), name), name));
  };
  make({"Plan_010", "Plan_030"});
  ManualScheduler& clock = *shot.clock;
  auto advanceUntil = [&](auto done) {
    for (int i = 0; i < 5000 && !done(); ++i) clock.advance(0.005);
  };
  clock.jobSeconds = 0.01;  // one frame per step of half that
  auto renderInto = [&](const Uuid& world) {
    model.openBatch(world);
    model.setRenderFolder(*model.outputNode(), shot.dir.path / "Rendus");
  };
  renderInto(worlds[1]);
  renderInto(worlds[0]);
  model.enqueueRender({worlds[0]});
  advanceUntil([&] { return !model.rendering; });
  // The example world renders at full size, a second a frame on the processor: a short shot of it.
  renderInto(example);
  model._frameCount = 12;
  model.enqueueRender({example, worlds[1]});
  advanceUntil([&] { return model.delivery.renderProgress > 0.3; });
  ASSERT_EQ(model._currentBatchID, example);
  inspect(model, *model.outputNode());
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model, false));
  RenderQueuePanel* queue = window.showRenderQueue();
  queue->resize(620, 250);
  ASSERT_TRUE(QTest::qWaitForWindowExposed(queue));
  Shot::settle(window);
  // The panel is a window of its own: it is laid over the window's picture where it would stand.
  QImage picture = window.grab().toImage();
  const QImage over = queue->grab().toImage();
  paintPopup(picture, over, QPoint(24, picture.height() - over.height() - 60));
  shot.save(picture, "render");
  EXPECT_GT(window.renderProgress()->value(), 300) << "a render under way";
  EXPECT_EQ(queue->jobs()->topLevelItemCount(), 3);
  model.stopAllRenders();
  clock.advance(1);
  queue->close();

  make({"Plan_020", "Interview_A", "Drone_04"});
  model.groupWorlds({worlds[0], worlds[2]}, "Scène 12");
  model._renameGroupRequest.reset();
  model.setWorldLUT(worlds[0], "auto:slog3");
  model.setWorldLUT(worlds[3], "auto:logc3");
  model.setWorldLUT(worlds[4], (shot.dir.path / "drone.cube").string());

  WorldsPanel* panel = window.worldsPanel();
  panel->show();
  window.resizeDocks({panel}, {250}, Qt::Horizontal);
  QTreeWidget* tree = panel->tree();
  tree->setCurrentItem(panel->itemOf(worlds[3]));
  Shot::settle(window);
  const std::unique_ptr<QMenu> menu(panel->selectionMenu(&window));
  QMenu* lut = menu->findChild<QMenu*>("worldLut");
  ASSERT_NE(lut, nullptr);
  // Under the last line, so that no line is hidden.
  const QRect last = tree->visualItemRect(tree->topLevelItem(tree->topLevelItemCount() - 1));
  shot.saveWithMenu(window, "worlds", *menu, tree->viewport()->mapTo(&window, QPoint(40, last.bottom() + 24)), lut);
  EXPECT_EQ(tree->topLevelItemCount(), 5) << "the folder, then the example world and three worlds";
}

}  // namespace ombrik::test
