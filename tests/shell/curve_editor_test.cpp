// The curve editor widget driven by the mouse: a key dragged up takes a higher value through the
// model, and undo puts it back.
#include <gtest/gtest.h>

#include <QApplication>
#include <QTest>

#include "document/app_model.h"
#include "document/graph_editor.h"
#include "document/key_anim.h"
#include "platform/scheduler.h"
#include "shell/curve_editor_widget.h"

using namespace ombrik;

namespace {
QApplication& app() {
  static int argc = 1;
  static char name[] = "shell_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* a = qobject_cast<QApplication*>(QCoreApplication::instance());
  if (!a) a = new QApplication(argc, argv);
  return *a;
}
}  // namespace

TEST(CurveEditorWidget, DraggingAKeyChangesItsValueAndUndoRestoresIt) {
  app();
  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
  const Uuid color = m.addNode(NodeKind::color(), {0, 0});
  m._frameCount = 50;
  m.setKey(color, "exposure", 0, -1.0);
  m.setKey(color, "exposure", 40, 1.0);
  m.select(color);
  m.inspectedID = color;
  clock->advance(2);  // the edits commit to the history

  CurveEditorWidget w(m);
  w.resize(500, 300);
  w.show();
  const Node* n = m.nodeByID(color);
  ASSERT_TRUE(n);
  ASSERT_TRUE(n->anim.count("exposure"));
  GraphEditor g;  // the same mapping the widget draws with
  GraphEditor::Curve curve;
  for (const auto& c : GraphEditor::curves(*n))
    if (c.key == "exposure") curve = c;
  ASSERT_EQ(curve.ks.size(), 2u);
  const QPoint key(int(std::lround(g.xOf(40, 50, 500))), int(std::lround(g.yOf(1.0, curve.range, 300))));

  QTest::mousePress(&w, Qt::LeftButton, {}, key);
  QTest::mouseMove(&w, key + QPoint(0, 30));  // a drag needs moves between press and release
  QTest::mouseMove(&w, key + QPoint(0, 60));
  QTest::mouseRelease(&w, Qt::LeftButton, {}, key + QPoint(0, 60));
  clock->advance(2);
  ASSERT_TRUE(m.nodeByID(color) && m.nodeByID(color)->anim.count("exposure"));
  const double moved = m.nodeByID(color)->anim.at("exposure").back().v;
  EXPECT_LT(moved, 1.0) << "dragged down the screen: a lower value";
  EXPECT_NEAR(moved, g.valueAt(key.y() + 60, curve.range, 300), 0.05);
  EXPECT_EQ(m.nodeByID(color)->anim.at("exposure").back().f, 40) << "a vertical drag keeps the frame";

  m.undo();
  ASSERT_TRUE(m.nodeByID(color) && m.nodeByID(color)->anim.count("exposure"));
  EXPECT_DOUBLE_EQ(m.nodeByID(color)->anim.at("exposure").back().v, 1.0);
  w.refresh();
  QImage shot = w.grab().toImage();
  EXPECT_FALSE(shot.isNull());
}
