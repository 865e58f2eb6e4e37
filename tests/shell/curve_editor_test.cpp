// The curve editor widget: keys dragged, deleted and styled through the model; labelled axes.
#include <QContextMenuEvent>

#include "document/graph_editor.h"
#include "document/key_anim.h"
#include "shell/axis_ticks.h"
#include "shell/curve_editor_widget.h"
#include "shell_app.h"

using namespace ombrik;

namespace {
// A colour node with three keys on its exposure, inspected, in an editor on screen.
struct Keyed {
  QApplication& app = test::shellApp();
  test::GraphDesk g;
  AppModel& m = g.m;
  Uuid color = g.add("color");
  std::unique_ptr<CurveEditorWidget> w;
  Keyed() {
    m._frameCount = 100;
    m.setKey(color, "exposure", 0, -1.0);
    m.setKey(color, "exposure", 40, 1.0);
    m.setKey(color, "exposure", 90, 0.0);
    m.select(color);
    m.inspectedID = color;
    g.clock->advance(2);  // the edits commit to the history
    w = std::make_unique<CurveEditorWidget>(m);
    w->resize(600, 300);
    w->show();
  }
  const std::vector<Keyframe>& keys() const { return m.nodeByID(color)->anim.at("exposure"); }
  QPoint at(int i) const { return w->keyPoint(KeySel{"exposure", i})->toPoint(); }
};

// Pixels of text (lighter than the curves' grid) inside `area`.
int inked(const QImage& image, QRect area) {
  int count = 0;
  for (int y = area.top(); y <= area.bottom(); ++y)
    for (int x = area.left(); x <= area.right(); ++x) count += qGray(image.pixel(x, y)) > 90;
  return count;
}
}  // namespace

// A key dragged down takes a lower value at the same frame, undone in one step; the selected keys
// go by the right-click menu, also in one step; frame numbers under the curves and values at
// their left are drawn in the margins, and an empty editor says how to animate instead.
TEST(CurveEditorWidget, DragsAndDeletesKeysAndLabelsItsAxes) {
  Keyed k;
  const GraphEditor& g = k.w->editor();  // the mapping the widget draws with
  GraphEditor::Curve curve;
  for (const auto& c : GraphEditor::curves(*k.m.nodeByID(k.color)))
    if (c.key == "exposure") curve = c;
  ASSERT_EQ(curve.ks.size(), 3u);
  const QPoint key(int(std::lround(g.xOf(40, 100, 600))), int(std::lround(g.yOf(1.0, curve.range, 300))));
  QTest::mousePress(k.w.get(), Qt::LeftButton, {}, key);
  QTest::mouseMove(k.w.get(), key + QPoint(0, 30));  // a drag needs moves between press and release
  QTest::mouseMove(k.w.get(), key + QPoint(0, 60));
  QTest::mouseRelease(k.w.get(), Qt::LeftButton, {}, key + QPoint(0, 60));
  k.g.clock->advance(2);
  EXPECT_LT(k.keys()[1].v, 1.0) << "dragged down the screen: a lower value";
  EXPECT_NEAR(k.keys()[1].v, g.valueAt(key.y() + 60, curve.range, 300), 0.05);
  EXPECT_EQ(k.keys()[1].f, 40) << "a vertical drag keeps the frame";
  k.m.undo();
  EXPECT_DOUBLE_EQ(k.keys()[1].v, 1.0);
  k.w->refresh();

  QImage shot = k.w->grab().toImage();
  const QRect left(0, int(g.my), int(g.mx) - 2, 300 - 2 * int(g.my));
  const QRect bottom(int(g.mx), 300 - int(g.my) + 2, 600 - 2 * int(g.mx), int(g.my) - 3);
  EXPECT_GT(inked(shot, left), 20) << "value labels";
  EXPECT_GT(inked(shot, bottom), 20) << "frame labels";

  k.m._keySel = {{"exposure", 0}, {"exposure", 1}};
  bool found = false;
  test::pickInNextMenu("deleteKeys", &found);
  QContextMenuEvent click(QContextMenuEvent::Mouse, k.at(1), k.w->mapToGlobal(k.at(1)));
  QApplication::sendEvent(k.w.get(), &click);
  EXPECT_TRUE(found);
  ASSERT_EQ(k.keys().size(), 1u);
  EXPECT_EQ(k.keys()[0].f, 90);
  EXPECT_TRUE(k.m._keySel.empty());
  k.g.clock->advance(1);
  k.m.undo();
  EXPECT_EQ(k.keys().size(), 3u);

  k.m.toggleAnim(k.color, "exposure");
  k.w->refresh();
  shot = k.w->grab().toImage();
  EXPECT_EQ(inked(shot, left), 0) << "no curve, no values";
  EXPECT_GT(inked(shot, QRect(int(g.mx), 100, 600 - 2 * int(g.mx), 100)), 50) << "the sentence on how to animate";
}

// A key's right-click menu offers the six styles and gives the one picked to the key, or to
// every selected key when the key was among them.
TEST(CurveEditorWidget, AKeysMenuSetsItsStyle) {
  const struct {
    const char* action;
    KeyInterp before, key;  // the previous key's segment and the key's own after the pick
  } cases[] = {
      {"keyStyle:linear", KeyInterp::linear, KeyInterp::linear}, {"keyStyle:smooth", KeyInterp::bezier, KeyInterp::bezier},
      {"keyStyle:ease", KeyInterp::bezier, KeyInterp::bezier},   {"keyStyle:easeIn", KeyInterp::bezier, KeyInterp::linear},
      {"keyStyle:easeOut", KeyInterp::linear, KeyInterp::bezier}, {"keyStyle:hold", KeyInterp::linear, KeyInterp::hold},
  };
  for (const auto& c : cases) {
    Keyed k;
    const std::unique_ptr<QMenu> menu = k.w->keyMenu(k.at(1));
    ASSERT_TRUE(menu) << c.action;
    EXPECT_EQ(k.m._keySel, (std::set<KeySel>{{"exposure", 1}})) << "the key is selected, as a click would";
    QAction* pick = menu->findChild<QAction*>(c.action);
    ASSERT_NE(pick, nullptr) << c.action;
    pick->trigger();
    EXPECT_EQ(k.keys()[0].interp, c.before) << c.action;
    EXPECT_EQ(k.keys()[1].interp, c.key) << c.action;
    EXPECT_EQ(k.keys()[2].interp, KeyInterp::linear) << c.action << ": the next key is not touched";
  }
  Keyed k;
  k.m._keySel = {{"exposure", 0}, {"exposure", 2}};
  k.w->keyMenu(k.at(2))->findChild<QAction*>("keyStyle:hold")->trigger();
  EXPECT_EQ(k.keys()[0].interp, KeyInterp::hold) << "both selected keys";
  EXPECT_EQ(k.keys()[2].interp, KeyInterp::hold);
  EXPECT_EQ(k.keys()[1].interp, KeyInterp::linear);
  EXPECT_FALSE(k.w->keyMenu(QPoint(k.at(1).x() + 40, 5))) << "no menu away from the keys";
}

// Round steps for the axis labels: the smallest of 1, 2 or 5 times a power of ten that keeps
// labels apart, and as many decimals as they need.
TEST(AxisTicks, RoundStepsThatKeepLabelsApart) {
  const struct {
    double lo, hi, minStep;
    double step;
    int decimals;
    std::vector<double> values;
  } cases[] = {
      {0, 99, 7, 10, 0, {0, 10, 20, 30, 40, 50, 60, 70, 80, 90}},
      {-0.62, 1.12, 0.3, 0.5, 1, {-0.5, 0, 0.5, 1}},
      {0.01, 0.03, 0.004, 0.005, 3, {0.01, 0.015, 0.02, 0.025, 0.03}},
      {-3, 3, 2, 2, 0, {-2, 0, 2}},
      {5, 4, 1, 1, 0, {}},  // an empty range has no ticks
  };
  for (const auto& c : cases) {
    const AxisTicks t = AxisTicks::of(c.lo, c.hi, c.minStep);
    EXPECT_DOUBLE_EQ(t.step, c.step) << c.lo << ".." << c.hi;
    EXPECT_EQ(t.decimals, c.decimals) << c.lo << ".." << c.hi;
    ASSERT_EQ(t.values.size(), c.values.size()) << c.lo << ".." << c.hi;
    for (std::size_t i = 0; i < c.values.size(); ++i) EXPECT_NEAR(t.values[i], c.values[i], 1e-12);
  }
  EXPECT_EQ(AxisTicks::of(0, 29, 1).values.size(), 30u) << "every frame of a short clip";
}
