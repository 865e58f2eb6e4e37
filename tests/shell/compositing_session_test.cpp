// A short session through the real window: a correction brightened with its inspector slider,
// seen brighter in the viewer, put back by Ctrl+Z, and a node dropped on the viewer to show it.
#include <QSlider>

#include "shell/inspector_widget.h"
#include "shell/node_editor.h"
#include "shell/param_row.h"
#include "shell/shown_text.h"
#include "shell/viewer_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

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

void drag(QWidget* w, QPoint from, QPoint to, std::function<void()> midway = {}) {
  QTest::mousePress(w, Qt::LeftButton, {}, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(w, from + (to - from) * k / 4);
  if (midway) midway();
  QTest::mouseRelease(w, Qt::LeftButton, {}, to);
}

}  // namespace

TEST(CompositingSession, AdjustSeeUndoAndDropOnTheViewerThroughTheWindow) {
  test::WindowDesk s(test::WindowDesk::example);
  ASSERT_TRUE(s.m->engine) << s.m->_status;
  // The quickest preview keeps the session short on the CPU driver.
  QAction* quarter = nullptr;
  for (QAction* a : s.window->findChildren<QAction*>())
    if (a->text() == shown("1/4 — le plus rapide")) quarter = a;
  ASSERT_NE(quarter, nullptr);
  quarter->trigger();
  EXPECT_EQ(s.m->_previewScale, 0.25);
  s.settle();

  NodeEditor* editor = s.window->nodeEditor();
  auto viewPoint = [&](Point g) { return editor->toView(g).toPoint(); };
  const Uuid mediaID = s.nodeOfKind("media")->id, outputID = s.nodeOfKind("output")->id;

  // A new correction between the picture and the output (the editor's menu and wires are the
  // node editor tests' own).
  const Uuid colorID = s.m->addNode(NodeKind::color(), {630, 330});
  s.m->connect(mediaID, colorID, 0, 0);
  s.m->connect(colorID, outputID, 0, 0);
  s.m->select(colorID);
  auto wired = [&](const Uuid& from, const Uuid& to) {
    return std::any_of(s.m->_edges.begin(), s.m->_edges.end(), [&](const Edge& e) { return e.from == from && e.to == to; });
  };
  s.clock->advance(1);  // the wiring becomes one step of the history
  s.settle();

  ViewerWidget* viewer = s.window->viewer();
  ASSERT_EQ(s.m->displayedNodeID(), colorID);
  const double levelBefore = meanLevel(viewer->picture());
  ASSERT_GT(levelBefore, 5) << "the sample picture is on screen";

  // The inspector shows the selected node; three pages up its exposure slider brighten it.
  ParamRow* exposure = s.window->inspector()->row("exposure");
  ASSERT_NE(exposure, nullptr);
  auto* slider = exposure->findChild<QSlider*>();
  ASSERT_NE(slider, nullptr);
  const double stopsBefore = s.m->nodeByID(colorID)->p("exposure");
  for (int k = 0; k < 3; ++k) QTest::keyClick(slider, Qt::Key_PageUp);
  EXPECT_NEAR(s.m->nodeByID(colorID)->p("exposure") - stopsBefore, 1.2, 0.051);
  s.settle();
  const double levelAfter = meanLevel(viewer->picture());
  EXPECT_GT(levelAfter, levelBefore * 1.3) << "more than a stop brighter: " << levelBefore << " → " << levelAfter;

  // Ctrl+Z through the window's menu shortcut puts the exposure and the picture back.
  QTest::keyClick(s.window.get(), Qt::Key_Z, Qt::ControlModifier);
  EXPECT_NEAR(s.m->nodeByID(colorID)->p("exposure"), stopsBefore, 1e-6);
  EXPECT_TRUE(wired(colorID, outputID)) << "only the last step is undone";
  s.settle();
  EXPECT_NEAR(meanLevel(viewer->picture()), levelBefore, 0.5);
  EXPECT_NEAR(slider->value(), slider->minimum() + (stopsBefore + 2) / 4 * (slider->maximum() - slider->minimum()), 1)
      << "the slider follows the undone value";

  // The media node dragged onto the viewer is shown there and goes back to its place.
  const Point before = *s.m->layout.position(mediaID);
  const QPoint overViewer = editor->mapFromGlobal(viewer->mapToGlobal(viewer->rect().center()));
  drag(editor, viewPoint(before), overViewer, [&] { EXPECT_TRUE(viewer->dropHint()) << "the viewer invites the drop"; });
  s.settle();
  EXPECT_FALSE(viewer->dropHint());
  EXPECT_EQ(s.m->displayedNodeID(), mediaID);
  EXPECT_EQ(*s.m->layout.position(mediaID), before);
}
