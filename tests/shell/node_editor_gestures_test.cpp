// The node editor's less common gestures: a Shift marquee, an input armed by Alt, A's dot.
#include "editor_desk.h"

using namespace ombrik;
using ombrik::test::Desk;

TEST(NodeEditorGestures, AShiftMarqueeSelectsTheNodesWhoseCentreItHolds) {
  const struct {
    const char* what;
    Point from, to;
    Qt::KeyboardModifiers mods;
    bool outputBefore;
    std::vector<int> expected;  // 0 output, 1 color, 2 blur
  } cases[] = {
      {"both small nodes", {150, 70}, {450, 210}, Qt::ShiftModifier, true, {1, 2}},
      {"drawn backwards", {450, 210}, {150, 70}, Qt::ShiftModifier, false, {1, 2}},
      {"the edge of a disc is not its centre", {150, 70}, {380, 210}, Qt::ShiftModifier, false, {1}},
      {"Ctrl adds to the selection", {150, 70}, {250, 210}, Qt::ShiftModifier | Qt::ControlModifier, true, {0, 1}},
      {"nothing inside clears", {150, 300}, {450, 400}, Qt::ShiftModifier, true, {}},
  };
  for (const auto& c : cases) {
    Desk d;
    const Uuid ids[] = {d.output, d.color, d.blur};
    d.model->select(c.outputBefore ? std::optional(d.output) : std::nullopt);
    d.drag(d.at(c.from), d.at(c.to), c.mods);
    std::set<Uuid> expected;
    for (int i : c.expected) expected.insert(ids[i]);
    EXPECT_EQ(d.selected(), expected) << c.what;
    EXPECT_EQ(d.model->_nodes.size(), 3u) << c.what;
  }
}

TEST(NodeEditorGestures, AnArmedInputTakesTheOutputBroughtToItAndKeepsTheLink) {
  Desk d;
  const int inputs = d.model->nodeByID(d.blur)->inputCount();
  ASSERT_GE(inputs, 2);
  QTest::mouseMove(d.editor.get(), d.centre(d.blur) + QPoint(0, 20));
  d.key(Qt::Key_Alt);
  ASSERT_TRUE(d.editor->armedInput());
  EXPECT_EQ(d.editor->armedInput()->node, d.blur);
  EXPECT_EQ(d.editor->armedInput()->port, 0) << "its first free input";
  for (int k = 1; k <= inputs; ++k) {
    d.key(Qt::Key_Alt);
    EXPECT_EQ(d.editor->armedInput()->port, k % inputs) << "each tap the next input, round";
  }
  d.key(Qt::Key_Alt);
  const int port = d.editor->armedInput()->port;
  EXPECT_EQ(port, 1);

  // The correction's output brought onto the armed input: the two discs touch.
  const Point input = schematic::inPos(*d.model->nodeByID(d.blur), d.pos(d.blur), port);
  d.drag(d.centre(d.color), d.at({input.x - schematic::kNodeRadius - 2, input.y}));
  EXPECT_TRUE(d.wired(d.color, d.blur, port));
  EXPECT_FALSE(d.editor->armedInput()) << "used";

  // Pulled far apart, a wire between touching nodes would be cut; this one stays.
  d.drag(d.centre(d.color), d.centre(d.color) + QPoint(-260, 120));
  EXPECT_TRUE(d.wired(d.color, d.blur, port));

  // Armed again, then Esc: nothing waits any more; Alt held with Ctrl (a shortcut) arms nothing.
  QTest::mouseMove(d.editor.get(), d.centre(d.output));
  d.key(Qt::Key_Alt);
  EXPECT_EQ(d.editor->armedInput()->node, d.output);
  d.key(Qt::Key_Escape);
  EXPECT_FALSE(d.editor->armedInput());
  d.key(Qt::Key_Alt, Qt::ControlModifier);
  EXPECT_FALSE(d.editor->armedInput());
}

TEST(NodeEditorGestures, AAddsADotIntoTheWireUnderThePointer) {
  Desk d;
  d.model->connect(d.color, d.blur, 0, 0);
  const Point a = schematic::outPos(*d.model->nodeByID(d.color), d.pos(d.color), 0);
  const Point b = schematic::inPos(*d.model->nodeByID(d.blur), d.pos(d.blur), 0);
  const Point middle = schematic::wireCurve(a, b, schematic::kDrawBend).at(0.5);
  QTest::mouseMove(d.editor.get(), d.at({middle.x, middle.y + 200}));  // away from any wire
  d.key(Qt::Key_A);
  EXPECT_EQ(d.model->_nodes.size(), 3u);

  QTest::mouseMove(d.editor.get(), d.at({middle.x, middle.y + 3}));
  d.key(Qt::Key_A);
  ASSERT_EQ(d.model->_nodes.size(), 4u);
  const Node& dot = d.model->_nodes.back();
  EXPECT_EQ(dot.kind->id, "dot");
  EXPECT_NEAR(d.pos(dot.id).y, middle.y, 2) << "on the wire";
  EXPECT_EQ(d.links(), (std::set<test::Link>{{d.color, dot.id, 0}, {dot.id, d.blur, 0}}));
}
