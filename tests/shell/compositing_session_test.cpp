// A short session through the real widgets: a node added from the editor's menu, wired by
// dragging from ports, brightened with its inspector slider, seen brighter in the viewer, and
// put back by Ctrl+Z.
#include <gtest/gtest.h>

#include <QContextMenuEvent>
#include <QSlider>
#include <QTest>

#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "platform/scheduler.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/node_editor.h"
#include "shell/param_row.h"
#include "shell/schematic_geometry.h"
#include "shell/shown_text.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

struct Session {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> model;
  std::unique_ptr<MainWindow> window;

  Session() {
    test::shellApp();
    // The example world of a development tree: the sample picture through a small graph.
    model = std::make_unique<AppModel>(AppModel::Options{.scheduler = clock,
                                                         .defaultsFile = (dir.path / "defaults.conf").string(),
                                                         .dataDir = dir.path / "data"});
    window = std::make_unique<MainWindow>(*model);
    window->resize(1280, 800);
    window->show();
    window->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
  }
  // Renders what was asked and lets every widget catch up, as the window's timer would.
  void settle() {
    clock->runAll();
    window->refresh();
    QCoreApplication::processEvents();
  }
  QAction* menuAction(const QString& text) {
    for (QAction* a : window->findChildren<QAction*>())
      if (a->text() == text) return a;
    return nullptr;
  }
  const Node* nodeOfKind(const std::string& kind, const std::optional<Uuid>& besides = std::nullopt) const {
    for (const auto& n : model->_nodes)
      if (n.kind->id == kind && n.id != besides) return &n;
    return nullptr;
  }
  QPoint viewPoint(Point g) const { return window->nodeEditor()->toView(g).toPoint(); }
};

// Mean of the three channels over the middle of the picture, 0..255.
double meanLevel(const QImage& image) {
  if (image.isNull()) return -1;
  double sum = 0;
  int n = 0;
  for (int y = image.height() / 4; y < image.height() * 3 / 4; ++y)
    for (int x = image.width() / 4; x < image.width() * 3 / 4; ++x) {
      const QRgb c = image.pixel(x, y);
      sum += qRed(c) + qGreen(c) + qBlue(c);
      n += 3;
    }
  return n ? sum / n : -1;
}

void drag(QWidget* w, QPoint from, QPoint to) {
  QTest::mousePress(w, Qt::LeftButton, {}, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(w, from + (to - from) * k / 4);
  QTest::mouseRelease(w, Qt::LeftButton, {}, to);
}

}  // namespace

TEST(CompositingSession, AddWireAdjustSeeAndUndoThroughTheWidgets) {
  Session s;
  ASSERT_TRUE(s.model->engine) << s.model->_status;
  // The quickest preview keeps the session short on the CPU driver.
  QAction* quarter = s.menuAction(shown("1/4 — le plus rapide"));
  ASSERT_NE(quarter, nullptr);
  quarter->trigger();
  EXPECT_EQ(s.model->_previewScale, 0.25);
  s.settle();

  NodeEditor* editor = s.window->nodeEditor();
  const Node* media = s.nodeOfKind("media");
  const Node* output = s.nodeOfKind("output");
  ASSERT_TRUE(media && output);
  const Uuid mediaID = media->id, outputID = output->id;
  const std::optional<Uuid> oldColor = s.nodeOfKind("color")->id;

  // A right click in empty space offers the kinds; the colour correction lands under the pointer.
  const Point place{630, 330};
  bool offered = false;
  test::pickInNextMenu("kind:color", &offered);
  QContextMenuEvent rightClick(QContextMenuEvent::Mouse, s.viewPoint(place), editor->mapToGlobal(s.viewPoint(place)));
  QApplication::sendEvent(editor, &rightClick);
  s.settle();
  ASSERT_TRUE(offered);
  const Node* added = s.nodeOfKind("color", oldColor);
  ASSERT_NE(added, nullptr);
  const Uuid colorID = added->id;
  const Point at = *s.model->layout.position(colorID);
  EXPECT_NEAR(at.x, place.x, 2);
  EXPECT_NEAR(at.y, place.y, 2);
  EXPECT_EQ(s.model->_selected, colorID) << "a new node is the one being worked on";

  // Media output → the new node; the new node's output → the output's first input.
  drag(editor, s.viewPoint(schematic::outPos(*s.model->nodeByID(mediaID), {130, 110}, 0)), s.viewPoint(place));
  const Point outFront = schematic::inPos(*s.model->nodeByID(outputID), *s.model->layout.position(outputID), 0);
  drag(editor, s.viewPoint(schematic::outPos(*s.model->nodeByID(colorID), place, 0)), s.viewPoint(outFront));
  auto wired = [&](const Uuid& from, const Uuid& to, int port) {
    return std::any_of(s.model->_edges.begin(), s.model->_edges.end(),
                       [&](const Edge& e) { return e.from == from && e.to == to && e.port == port && e.fromPort == 0; });
  };
  EXPECT_TRUE(wired(mediaID, colorID, 0));
  EXPECT_TRUE(wired(colorID, outputID, 0));
  s.clock->advance(1);  // the wiring becomes one step of the history
  s.settle();

  ViewerWidget* viewer = s.window->viewer();
  ASSERT_EQ(s.model->displayedNodeID(), colorID);
  const QImage before = viewer->picture();
  const double levelBefore = meanLevel(before);
  ASSERT_GT(levelBefore, 5) << "the sample picture is on screen";

  // The inspector shows the selected node; three pages up its exposure slider brighten it.
  ParamRow* exposure = s.window->inspector()->row("exposure");
  ASSERT_NE(exposure, nullptr);
  auto* slider = exposure->findChild<QSlider*>();
  ASSERT_NE(slider, nullptr);
  const double stopsBefore = s.model->nodeByID(colorID)->p("exposure");
  for (int k = 0; k < 3; ++k) QTest::keyClick(slider, Qt::Key_PageUp);
  const double stopsAfter = s.model->nodeByID(colorID)->p("exposure");
  EXPECT_NEAR(stopsAfter - stopsBefore, 1.2, 0.051);
  s.settle();
  const double levelAfter = meanLevel(viewer->picture());
  EXPECT_GT(levelAfter, levelBefore * 1.3) << "more than a stop brighter: " << levelBefore << " → " << levelAfter;

  // Ctrl+Z through the window's menu shortcut puts the exposure and the picture back.
  QTest::keyClick(s.window.get(), Qt::Key_Z, Qt::ControlModifier);
  EXPECT_NEAR(s.model->nodeByID(colorID)->p("exposure"), stopsBefore, 1e-6);
  EXPECT_TRUE(wired(colorID, outputID, 0)) << "only the last step is undone";
  s.settle();
  EXPECT_NEAR(meanLevel(viewer->picture()), levelBefore, 0.5);
  EXPECT_NEAR(slider->value(), slider->minimum() + (stopsBefore + 2) / 4 * (slider->maximum() - slider->minimum()), 1)
      << "the slider follows the undone value";
}

TEST(CompositingSession, ANodeDroppedOnTheViewerIsShownThereAndStaysInItsPlace) {
  Session s;
  s.settle();
  NodeEditor* editor = s.window->nodeEditor();
  ViewerWidget* viewer = s.window->viewer();
  const Node* media = s.nodeOfKind("media");
  ASSERT_TRUE(media);
  const Uuid id = media->id;
  const Point before = *s.model->layout.position(id);
  EXPECT_NE(s.model->displayedNodeID(), id);

  const QPoint from = s.viewPoint(before);
  const QPoint overViewer = editor->mapFromGlobal(viewer->mapToGlobal(viewer->rect().center()));
  QTest::mousePress(editor, Qt::LeftButton, {}, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(editor, from + (overViewer - from) * k / 4);
  EXPECT_TRUE(viewer->dropHint()) << "the viewer invites the drop";
  QTest::mouseRelease(editor, Qt::LeftButton, {}, overViewer);
  s.settle();
  EXPECT_FALSE(viewer->dropHint());
  EXPECT_EQ(s.model->displayedNodeID(), id);
  EXPECT_EQ(*s.model->layout.position(id), before) << "the node goes back to its place";
}
