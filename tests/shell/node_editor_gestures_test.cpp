// The node editor's less common gestures: a Shift marquee, an input armed by a tap of Alt and
// wired by bringing an output to it, and A dropping a dot into the wire under the pointer.
#include <gtest/gtest.h>

#include <QTest>

#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/node_editor.h"
#include "shell/schematic_geometry.h"
#include "editor_desk.h"
#include "shell_app.h"

using namespace ombrik;
using ombrik::test::Desk;


TEST(NodeEditorGestures, AShiftMarqueeSelectsTheNodesWhoseCentreItHolds) {
  enum Pre { none, output };
  const struct {
    const char* what;
    Point from, to;
    Qt::KeyboardModifiers mods;
    Pre before;
    std::vector<int> expected;  // 0 output, 1 color, 2 blur
  } cases[] = {
      {"both small nodes", {150, 70}, {450, 210}, Qt::ShiftModifier, output, {1, 2}},
      {"drawn backwards", {450, 210}, {150, 70}, Qt::ShiftModifier, none, {1, 2}},
      {"the edge of a disc is not its centre", {150, 70}, {380, 210}, Qt::ShiftModifier, none, {1}},
      {"Ctrl adds to the selection", {150, 70}, {250, 210}, Qt::ShiftModifier | Qt::ControlModifier, output, {0, 1}},
      {"nothing inside clears", {150, 300}, {450, 400}, Qt::ShiftModifier, output, {}},
  };
  for (const auto& c : cases) {
    Desk d;
    const Uuid ids[] = {d.output, d.color, d.blur};
    d.model->select(c.before == output ? std::optional(d.output) : std::nullopt);
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
  d.tapAlt();
  ASSERT_TRUE(d.editor->armedInput());
  EXPECT_EQ(d.editor->armedInput()->node, d.blur);
  EXPECT_EQ(d.editor->armedInput()->port, 0) << "its first free input";
  EXPECT_NE(d.model->_status.find("en attente : approchez-la"), std::string::npos) << d.model->_status;
  for (int k = 1; k <= inputs; ++k) {
    d.tapAlt();
    EXPECT_EQ(d.editor->armedInput()->port, k % inputs) << "each tap the next input, round";
  }
  d.tapAlt();  // the second input
  const int port = d.editor->armedInput()->port;
  EXPECT_EQ(port, 1);

  // The correction's output brought onto the armed input: the two discs touch.
  const Node& blur = *d.model->nodeByID(d.blur);
  const Point input = schematic::inPos(blur, *d.model->layout.position(d.blur), port);
  const Point target{input.x - schematic::kNodeRadius - 2, input.y};
  const QPoint from = d.centre(d.color);
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(d.editor.get(), from + (d.at(target) - from) * k / 4);
  EXPECT_NE(d.model->_status.find("relâchez pour brancher"), std::string::npos) << d.model->_status;
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, {}, d.at(target));
  EXPECT_TRUE(d.wired(d.color, d.blur, port));
  EXPECT_FALSE(d.editor->armedInput()) << "used";
  EXPECT_TRUE(d.model->_status.ends_with(" · lien verrouillé")) << d.model->_status;

  // Pulled far apart, a wire between touching nodes would be cut; this one stays.
  d.drag(d.centre(d.color), d.centre(d.color) + QPoint(-260, 120));
  EXPECT_TRUE(d.wired(d.color, d.blur, port));
  EXPECT_EQ(d.model->_status, "Lien verrouillé : vous pouvez déplacer le node librement.");

  // Armed again, then Esc: nothing waits any more.
  QTest::mouseMove(d.editor.get(), d.centre(d.output));
  d.tapAlt();
  EXPECT_EQ(d.editor->armedInput()->node, d.output);
  QTest::keyClick(d.editor.get(), Qt::Key_Escape);
  EXPECT_FALSE(d.editor->armedInput());
  EXPECT_EQ(d.model->_status, "Entrée en attente annulée.");
  // Alt held with Ctrl (a shortcut) arms nothing.
  QTest::keyClick(d.editor.get(), Qt::Key_Alt, Qt::ControlModifier);
  EXPECT_FALSE(d.editor->armedInput());
}

TEST(NodeEditorGestures, AAddsADotIntoTheWireUnderThePointer) {
  Desk d;
  d.model->connect(d.color, d.blur, 0, 0);
  const Node& color = *d.model->nodeByID(d.color);
  const Node& blur = *d.model->nodeByID(d.blur);
  const Point a = schematic::outPos(color, *d.model->layout.position(d.color), 0);
  const Point b = schematic::inPos(blur, *d.model->layout.position(d.blur), 0);
  const Point middle = schematic::wireCurve(a, b, schematic::kDrawBend).at(0.5);

  QTest::mouseMove(d.editor.get(), d.at({middle.x, middle.y + 200}));  // away from any wire
  QTest::keyClick(d.editor.get(), Qt::Key_A);
  EXPECT_EQ(d.model->_nodes.size(), 3u);

  QTest::mouseMove(d.editor.get(), d.at({middle.x, middle.y + 3}));
  QTest::keyClick(d.editor.get(), Qt::Key_A);
  ASSERT_EQ(d.model->_nodes.size(), 4u);
  const Node& dot = d.model->_nodes.back();
  EXPECT_EQ(dot.kind->id, "dot");
  EXPECT_NEAR(d.model->layout.position(dot.id)->y, middle.y, 2) << "on the wire";
  EXPECT_TRUE(d.wired(d.color, dot.id, 0));
  EXPECT_TRUE(d.wired(dot.id, d.blur, 0));
  EXPECT_FALSE(d.wired(d.color, d.blur, 0));
  EXPECT_EQ(d.model->_status.rfind("Point de regroupement ajouté", 0), 0u);
}
