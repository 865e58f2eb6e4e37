// The node editor by hand: selecting, moving, deleting, copying, cutting and drawing wires,
// adding nodes from the kinds menu (each new one in sight and on no other), a node's own menu,
// and navigating.
#include <gtest/gtest.h>

#include <QLineEdit>
#include <QTest>
#include <QWheelEvent>

#include "document/app_model.h"
#include "document/history_state.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/kind_menu.h"
#include "shell/node_editor.h"
#include "shell/quick_add_panel.h"
#include "shell/schematic_geometry.h"
#include "editor_desk.h"
#include "shell_app.h"

using namespace ombrik;
using ombrik::test::Desk;


TEST(NodeEditor, ClicksSelectAndDragsMoveTheSelectionTogether) {
  Desk d;
  EXPECT_GT(d.editor->view().zoom, 0.5) << "framed at the editor's size";
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  EXPECT_EQ(d.model->_selected, d.color);
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, Qt::ControlModifier, d.centre(d.blur));
  EXPECT_TRUE(d.model->isSelected(d.color));
  EXPECT_TRUE(d.model->isSelected(d.blur));

  const double z = d.editor->view().zoom;
  d.drag(d.centre(d.blur), d.centre(d.blur) + QPoint(60, 30));
  EXPECT_NEAR(d.model->layout.position(d.blur)->x, 400 + 60 / z, 1.5);
  EXPECT_NEAR(d.model->layout.position(d.blur)->y, 140 + 30 / z, 1.5);
  EXPECT_NEAR(d.model->layout.position(d.color)->x, 200 + 60 / z, 1.5) << "the selection moves as one";
  EXPECT_NEAR(d.model->layout.position(d.output)->x, 600, 1e-9) << "what isn't selected stays";

  // A plain click on one of them leaves it alone in the selection; a click on nothing clears.
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  EXPECT_EQ(d.model->_selected, d.color);
  EXPECT_FALSE(d.model->isSelected(d.blur));
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.at({300, 400}));
  EXPECT_FALSE(d.model->_selected);
}

TEST(NodeEditor, KeysDeleteCopyAndPaste) {
  Desk d;
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, Qt::ControlModifier, d.centre(d.blur));
  QTest::keyClick(d.editor.get(), Qt::Key_C, Qt::ControlModifier);
  QTest::keyClick(d.editor.get(), Qt::Key_V, Qt::ControlModifier);
  ASSERT_EQ(d.model->_nodes.size(), 5u);
  EXPECT_EQ(d.model->_selection.size(), 2u) << "the copies are the new selection";
  std::map<std::string, Point> copies;
  for (const Uuid& id : d.model->_selection) copies[d.model->nodeByID(id)->kind->id] = *d.model->layout.position(id);
  ASSERT_EQ(copies.size(), 2u);
  EXPECT_EQ(copies["blur"].x - copies["color"].x, 200) << "the copies keep their layout";
  EXPECT_EQ(copies["blur"].y, copies["color"].y);
  d.expectClearAndInSight(d.model->_selection);

  QTest::keyClick(d.editor.get(), Qt::Key_Delete);
  EXPECT_EQ(d.model->_nodes.size(), 3u);
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  QTest::keyClick(d.editor.get(), Qt::Key_Backspace);
  EXPECT_EQ(d.model->nodeByID(d.color), nullptr);
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.output));
  QTest::keyClick(d.editor.get(), Qt::Key_Delete);
  EXPECT_NE(d.model->nodeByID(d.output), nullptr) << "the output is never deleted";
}

TEST(NodeEditor, WiresAreDrawnFromOutputsPickedUpFromInputsAndCut) {
  Desk d;
  // Output port to a node's body: the first fitting input.
  d.drag(d.outPort(d.color), d.centre(d.blur));
  EXPECT_TRUE(d.wired(d.color, d.blur, 0));
  // Output port straight onto an input port: that very port, even a matte one.
  d.drag(d.outPort(d.blur), d.inPort(d.output, 1));
  EXPECT_TRUE(d.wired(d.blur, d.output, 1));
  // Picked up from its input and moved to another input.
  d.drag(d.inPort(d.output, 1), d.inPort(d.output, 0));
  EXPECT_TRUE(d.wired(d.blur, d.output, 0));
  EXPECT_FALSE(d.wired(d.blur, d.output, 1));
  // A wire that would loop back is refused.
  d.drag(d.outPort(d.blur), d.centre(d.color));
  EXPECT_FALSE(d.wired(d.blur, d.color, 0));
  EXPECT_EQ(d.model->_edges.size(), 2u);

  // A stroke through the empty background across the first wire cuts it only.
  const QPoint mid = (d.outPort(d.color) + d.inPort(d.blur, 0)) / 2;
  d.drag(mid + QPoint(0, -40), mid + QPoint(0, 40));
  EXPECT_FALSE(d.wired(d.color, d.blur, 0));
  EXPECT_TRUE(d.wired(d.blur, d.output, 0));
  // Picked up and let go in the void: removed.
  d.drag(d.inPort(d.output, 0), d.at({500, 420}));
  EXPECT_TRUE(d.model->_edges.empty());
}

TEST(NodeEditor, KindsMenuAndSearchAddAtThePointerAfterTheSelectionOrAtTheEndOfAWire) {
  Desk d;
  bool offered = false;
  test::pickInNextMenu("kind:glow", &offered);
  QContextMenuEvent rightClick(QContextMenuEvent::Mouse, d.at({300, 350}), d.editor->mapToGlobal(d.at({300, 350})));
  QApplication::sendEvent(d.editor.get(), &rightClick);
  ASSERT_TRUE(offered);
  ASSERT_EQ(d.model->_nodes.size(), 4u);
  const Uuid glow = d.model->_nodes.back().id;
  EXPECT_EQ(d.model->_nodes.back().kind->id, "glow");
  EXPECT_NEAR(d.model->layout.position(glow)->x, 300, 2);
  EXPECT_NEAR(d.model->layout.position(glow)->y, 350, 2);

  // A wire let go in empty space opens the search; the kind chosen there is fed by the wire.
  d.drag(d.outPort(glow), d.at({500, 420}));
  QuickAddPanel* panel = d.editor->quickAddPanel();
  ASSERT_TRUE(panel && panel->isVisible());
  QTest::keyClicks(panel->field(), "blur");
  ASSERT_FALSE(panel->results().empty());
  EXPECT_EQ(panel->results().front()->id, "blur");
  QTest::keyClick(panel->field(), Qt::Key_Return);
  EXPECT_FALSE(panel->isVisible());
  ASSERT_EQ(d.model->_nodes.size(), 5u);
  const Node& made = d.model->_nodes.back();
  EXPECT_EQ(made.kind->id, "blur");
  EXPECT_TRUE(d.wired(glow, made.id, 0));
  EXPECT_FALSE(d.model->quickAddLink) << "the pending link is used up";

  // Closing the search without a choice adds nothing and forgets the link.
  d.drag(d.outPort(d.color), d.at({100, 420}));
  ASSERT_TRUE(panel->isVisible());
  QTest::keyClicks(panel->field(), "zzz nothing");
  EXPECT_TRUE(panel->results().empty());
  QTest::keyClick(panel->field(), Qt::Key_Return);
  EXPECT_TRUE(panel->isVisible()) << "nothing to add";
  QTest::keyClick(panel->field(), Qt::Key_Escape);
  EXPECT_FALSE(panel->isVisible());
  EXPECT_EQ(d.model->_nodes.size(), 5u);
  EXPECT_FALSE(d.model->quickAddLink);

  // Tab: the chosen kind goes behind the selected node and takes over its wires; ↓ moves the choice.
  d.drag(d.outPort(d.color), d.centre(d.blur));
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  QTest::keyClick(d.editor.get(), Qt::Key_Tab);
  ASSERT_TRUE(panel->isVisible());
  QTest::keyClicks(panel->field(), "sharpen");
  const std::vector<KindRef> found = panel->results();
  auto it = std::find_if(found.begin(), found.end(), [](const KindRef& k) { return k->id == "sharpen"; });
  ASSERT_NE(it, found.end());
  for (auto k = found.begin(); k != it; ++k) QTest::keyClick(panel->field(), Qt::Key_Down);
  QTest::keyClick(panel->field(), Qt::Key_Return);
  const Uuid sharpen = d.model->_nodes.back().id;
  EXPECT_EQ(d.model->_nodes.back().kind->id, "sharpen");
  EXPECT_TRUE(d.wired(d.color, sharpen, 0));
  EXPECT_TRUE(d.wired(sharpen, d.blur, 0));
  EXPECT_FALSE(d.wired(d.color, d.blur, 0));
}

TEST(NodeEditor, WheelPansAndControlWheelZoomsAboutThePointer) {
  Desk d;
  const schematic::View before = d.editor->view();
  QWheelEvent down(QPointF(300, 200), d.editor->mapToGlobal(QPointF(300, 200)), QPoint(), QPoint(0, -120), Qt::NoButton,
                   Qt::NoModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(d.editor.get(), &down);
  EXPECT_EQ(d.editor->view().zoom, before.zoom);
  EXPECT_LT(d.editor->view().pan.y, before.pan.y);
  EXPECT_EQ(d.editor->view().pan.x, before.pan.x);

  const Point under = d.editor->toGraph({300, 200});
  QWheelEvent zoomIn(QPointF(300, 200), d.editor->mapToGlobal(QPointF(300, 200)), QPoint(), QPoint(0, 120), Qt::NoButton,
                     Qt::ControlModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(d.editor.get(), &zoomIn);
  EXPECT_GT(d.editor->view().zoom, before.zoom);
  EXPECT_NEAR(d.editor->toView(under).x(), 300, 1e-6);
  EXPECT_NEAR(d.editor->toView(under).y(), 200, 1e-6);

  // The middle button drags the whole graph.
  const schematic::View held = d.editor->view();
  QTest::mousePress(d.editor.get(), Qt::MiddleButton, {}, QPoint(100, 100));
  QTest::mouseMove(d.editor.get(), QPoint(150, 130));
  QTest::mouseRelease(d.editor.get(), Qt::MiddleButton, {}, QPoint(150, 130));
  EXPECT_NEAR(d.editor->view().pan.x, held.pan.x + 50, 1e-9);
  EXPECT_NEAR(d.editor->view().pan.y, held.pan.y + 30, 1e-9);
  EXPECT_EQ(d.model->layout.position(d.color)->x, 200) << "navigation moves no node";
}

TEST(NodeEditor, ANodeDraggedAloneSnapsOntoTheNodeItTouches) {
  Desk d;
  // Let go just right of the correction, a little lower: wired into the blur's picture input.
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  QTest::mouseMove(d.editor.get(), d.centre(d.blur) + QPoint(-20, 0));
  EXPECT_TRUE(d.model->interactiveDrag) << "the model knows a node is moving";
  QTest::mouseMove(d.editor.get(), d.at({262, 150}));
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, {}, d.at({262, 150}));
  EXPECT_FALSE(d.model->interactiveDrag);
  EXPECT_TRUE(d.wired(d.color, d.blur, 0));
  ASSERT_EQ(d.model->_edges.size(), 1u);

  // Several nodes moved together never snap.
  const Uuid glow = d.model->addNode(*NodeKind::find("glow"), {400, 300});
  d.editor->refresh();
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(glow));
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, Qt::ControlModifier, d.centre(d.output));
  d.clock->advance(1);
  const QPoint touching = d.centre(d.blur) + (d.at({62, 8}) - d.at({0, 0}));
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, d.centre(glow));
  QTest::mouseMove(d.editor.get(), touching);
  d.model->renderPendingAfterDrag = true;  // as if a change was held back while the nodes moved
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, {}, touching);
  EXPECT_EQ(d.model->_edges.size(), 1u);
  EXPECT_TRUE(d.model->renderQueued) << "what was held back renders once the drag ends";
  EXPECT_FALSE(d.model->renderPendingAfterDrag);
}

TEST(NodeEditor, ANodeDroppedOnAWireGoesIntoItCtrlShiftIntercalates) {
  Desk d;
  d.model->connect(d.color, d.blur, 0, 0);
  d.model->connect(d.blur, d.output, 0, 0);
  const Uuid glow = d.model->addNode(*NodeKind::find("glow"), {250, 300});
  const Uuid sharpen = d.model->addNode(*NodeKind::find("sharpen"), {550, 300});
  d.model->connect(glow, sharpen, 0, 0);
  d.editor->frameAll();
  auto middleOf = [&](const Uuid& from, const Uuid& to) {
    const Point a = schematic::outPos(*d.model->nodeByID(from), *d.model->layout.position(from), 0);
    const Point b = schematic::inPos(*d.model->nodeByID(to), *d.model->layout.position(to), 0);
    return d.at(schematic::wireCurve(a, b, schematic::kHitBend).at(0.5));
  };

  // Plainly dropped, the blur is added on the lower wire and keeps its own wires.
  const QPoint lowerWire = middleOf(glow, sharpen);
  d.drag(d.centre(d.blur), lowerWire);
  EXPECT_TRUE(d.wired(glow, d.blur, 0));
  EXPECT_TRUE(d.wired(d.blur, sharpen, 0));
  EXPECT_FALSE(d.wired(glow, sharpen, 0));
  EXPECT_FALSE(d.wired(d.color, d.blur, 0)) << "its picture input now comes from the wire";
  EXPECT_TRUE(d.wired(d.blur, d.output, 0));

  // Fed by the blur, the sharpen can't simply go in front of it; with Ctrl+Shift it leaves its
  // place first, so it can.
  d.model->layout.set(d.blur, {400, 140});
  d.model->connect(d.color, d.blur, 0, 0);
  d.model->connect(d.blur, d.output, 0, 0);
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, d.centre(sharpen));
  const QPoint upperWire = middleOf(d.color, d.blur);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(d.editor.get(), d.centre(sharpen) + (upperWire - d.centre(sharpen)) * k / 4);
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, Qt::ControlModifier | Qt::ShiftModifier, upperWire);
  EXPECT_TRUE(d.wired(d.color, sharpen, 0));
  EXPECT_TRUE(d.wired(sharpen, d.blur, 0));
  EXPECT_FALSE(d.wired(d.color, d.blur, 0));
  EXPECT_FALSE(d.wired(d.blur, sharpen, 0)) << "its old place is closed up";
}

TEST(NodeEditor, DropBandsDeleteOrLockTheViewer) {
  Desk d;
  d.clock->advance(1);  // the nodes are one undo step, what follows another
  const QPoint trash(20, d.editor->height() - 10);
  const QPoint context(d.editor->width() - 20, d.editor->height() - 10);

  // The whole selection goes to the trash with the node dragged from it; undo brings it back
  // where it was.
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, Qt::ControlModifier, d.centre(d.blur));
  d.drag(d.centre(d.blur), trash);
  EXPECT_EQ(d.model->nodeByID(d.blur), nullptr);
  EXPECT_EQ(d.model->nodeByID(d.color), nullptr);
  d.model->undo();
  ASSERT_NE(d.model->nodeByID(d.blur), nullptr);
  ASSERT_NE(d.model->nodeByID(d.color), nullptr);
  EXPECT_EQ(*d.model->layout.position(d.blur), (Point{400, 140}));

  // The context band locks the viewer on the node, whatever is selected next.
  d.model->select(std::nullopt);
  d.editor->refresh();
  d.drag(d.centre(d.color), context);
  EXPECT_TRUE(d.model->_viewLocked);
  EXPECT_EQ(d.model->displayedNodeID(), d.color);
  EXPECT_EQ(*d.model->layout.position(d.color), (Point{200, 140})) << "a drop on a band moves nothing";
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  EXPECT_EQ(d.model->_selected, d.blur);
  EXPECT_EQ(d.model->displayedNodeID(), d.color);
  // The same node again releases it.
  d.drag(d.centre(d.color), context);
  EXPECT_FALSE(d.model->_viewLocked);
}

TEST(NodeEditor, DoubleClickLocksTheInspectorAndDBypasses) {
  Desk d;
  QTest::mouseDClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  EXPECT_EQ(d.model->inspectorLock, d.blur);
  QTest::mouseDClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  EXPECT_FALSE(d.model->inspectorLock) << "the same node again releases it";

  d.clock->advance(1);
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.color));
  QTest::mouseClick(d.editor.get(), Qt::LeftButton, Qt::ControlModifier, d.centre(d.blur));
  QTest::keyClick(d.editor.get(), Qt::Key_D);
  EXPECT_TRUE(d.model->nodeByID(d.color)->bypass);
  EXPECT_TRUE(d.model->nodeByID(d.blur)->bypass);
  d.model->undo();
  EXPECT_FALSE(d.model->nodeByID(d.color)->bypass);
  EXPECT_FALSE(d.model->nodeByID(d.blur)->bypass);
  QTest::keyClick(d.editor.get(), Qt::Key_D, Qt::ControlModifier);
  EXPECT_FALSE(d.model->nodeByID(d.color)->bypass) << "only the bare key";

  // A mixed selection is bypassed as a whole first.
  d.model->setBypass(d.color, true);
  QTest::keyClick(d.editor.get(), Qt::Key_D);
  EXPECT_TRUE(d.model->nodeByID(d.blur)->bypass);
  EXPECT_TRUE(d.model->nodeByID(d.color)->bypass);

  // The node's own menu toggles the node under the pointer only.
  bool offered = false;
  test::pickInNextMenu("bypass", &offered);
  QContextMenuEvent rightClick(QContextMenuEvent::Mouse, d.centre(d.output), d.editor->mapToGlobal(d.centre(d.output)));
  QApplication::sendEvent(d.editor.get(), &rightClick);
  ASSERT_TRUE(offered);
  EXPECT_TRUE(d.model->nodeByID(d.output)->bypass);
  EXPECT_TRUE(d.model->nodeByID(d.blur)->bypass);
}

TEST(NodeEditor, PullingATouchingNodeAwayCutsTheirWire) {
  Desk d;
  d.model->layout.set(d.blur, {270, 140});  // touching the correction
  d.model->connect(d.color, d.blur, 0, 0);
  d.editor->refresh();
  ASSERT_TRUE(d.wired(d.color, d.blur, 0));

  // A little apart: a warning, and the wire stays.
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  const QPoint near = d.at({300, 140});
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(d.editor.get(), d.centre(d.blur) + (near - d.centre(d.blur)) * k / 4);
  EXPECT_EQ(d.model->_status, "Écartez pour déconnecter");
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, {}, near);
  EXPECT_TRUE(d.wired(d.color, d.blur, 0));
  EXPECT_TRUE(d.model->_status.empty());

  // Touching again, then pulled well apart: cut on release, and undo brings it back.
  d.model->layout.set(d.blur, {270, 140});
  d.editor->refresh();
  d.clock->advance(HistoryState::kQuiet + 0.1);  // a pause: what was done becomes one step of the history
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  const QPoint far = d.at({420, 140});
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(d.editor.get(), d.centre(d.blur) + (far - d.centre(d.blur)) * k / 4);
  EXPECT_EQ(d.model->_status, "Lâchez pour déconnecter");
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, {}, far);
  EXPECT_FALSE(d.wired(d.color, d.blur, 0));
  d.clock->advance(HistoryState::kQuiet + 0.1);
  d.model->undo();
  EXPECT_TRUE(d.wired(d.color, d.blur, 0));

  // Nodes that weren't touching when picked up never cut: the wire just stretches.
  d.model->layout.set(d.blur, {400, 140});
  d.editor->refresh();
  d.drag(d.centre(d.blur), d.at({700, 400}));
  EXPECT_TRUE(d.wired(d.color, d.blur, 0));
}

TEST(NodeEditor, NewNodesLandInSightAndOnNoOtherNode) {
  struct Case {
    const char* what;
    std::function<void(Desk&)> before;  // the view and selection when the node is added
    std::function<void(Desk&)> add;
  };
  auto tab = [](const char* search) {
    return [search](Desk& d) {
      QTest::keyClick(d.editor.get(), Qt::Key_Tab);
      QTest::keyClicks(d.editor->quickAddPanel()->field(), search);
      QTest::keyClick(d.editor->quickAddPanel()->field(), Qt::Key_Return);
    };
  };
  auto rightClickAt = [](Point g, const char* kind) {
    return [g, kind](Desk& d) {
      bool offered = false;
      test::pickInNextMenu(QString("kind:") + kind, &offered);
      QContextMenuEvent click(QContextMenuEvent::Mouse, d.at(g), d.editor->mapToGlobal(d.at(g)));
      QApplication::sendEvent(d.editor.get(), &click);
      EXPECT_TRUE(offered);
    };
  };
  auto selectBlur = [](Desk& d) { d.model->select(d.blur); };
  const std::vector<Case> cases = {
      {"the menu opened on a node's name", [](Desk&) {}, rightClickAt({200, 185}, "glow")},
      {"after a node the view shows only the top of", [](Desk& d) {
         d.model->select(d.blur);
         d.editor->refresh();
         // The blur sits at the bottom edge: what goes below it is out of the view.
         d.panBy({0, d.editor->height() - 40 - d.centre(d.blur).y()});
       }, tab("grain")},
      {"twice after the same node: the second beside the first", [](Desk& d) {
         d.model->select(d.blur);
         d.model->addEffect(*NodeKind::find("glow"));
         d.editor->refresh();
         d.model->select(d.blur);
       }, tab("sharpen")},
      {"behind the selection with nothing selected", [](Desk& d) { d.model->select(std::nullopt); }, tab("blur")},
      {"at the end of a wire dropped on a node's name", selectBlur, [](Desk& d) {
         d.drag(d.outPort(d.color), d.at({400, 230}));  // under the blur, too far for its inputs
         ASSERT_TRUE(d.editor->quickAddPanel() && d.editor->quickAddPanel()->isVisible());
         QTest::keyClicks(d.editor->quickAddPanel()->field(), "glow");
         QTest::keyClick(d.editor->quickAddPanel()->field(), Qt::Key_Return);
       }},
  };
  for (const Case& c : cases) {
    Desk d;
    c.before(d);
    const std::size_t count = d.model->_nodes.size();
    c.add(d);
    ASSERT_EQ(d.model->_nodes.size(), count + 1) << c.what;
    d.expectClearAndInSight({d.model->_nodes.back().id}, c.what);
  }
}

TEST(NodeEditor, FFramesTheSelectionOrEveryNode) {
  Desk d;
  d.panBy({-2000, 900});
  QTest::keyClick(d.editor.get(), Qt::Key_F);
  d.expectClearAndInSight({d.output, d.color, d.blur}, "nothing selected");

  d.panBy({700, -700});
  d.model->select(d.color);  // out of sight now
  QTest::keyClick(d.editor.get(), Qt::Key_F);
  EXPECT_EQ(d.editor->view().zoom, schematic::kFrameZoomLimit) << "one node is not blown up";
  const QPointF middle = QRectF(d.editor->rect()).center();
  EXPECT_NEAR(d.editor->toView(*d.model->layout.position(d.color)).x(), middle.x(), 1);
  EXPECT_NEAR(d.editor->toView(*d.model->layout.position(d.color)).y(), middle.y(), 1);
  QTest::keyClick(d.editor.get(), Qt::Key_F, Qt::ControlModifier);
  EXPECT_EQ(d.editor->view().zoom, schematic::kFrameZoomLimit) << "only the bare key";
}

TEST(NodeEditor, ANodesMenuRenamesDuplicatesAndDeletes) {
  Desk d;
  auto menuOn = [&](const Uuid& id, const char* action) {
    bool offered = false;
    test::pickInNextMenu(action, &offered);
    QContextMenuEvent click(QContextMenuEvent::Mouse, d.centre(id), d.editor->mapToGlobal(d.centre(id)));
    QApplication::sendEvent(d.editor.get(), &click);
    EXPECT_TRUE(offered) << action;
  };
  // The name asked for: typed, or the question closed.
  auto answerRename = [&](std::optional<QString> typed) {
    d.editor->askName = [typed](const QString& present) {
      EXPECT_FALSE(present.isEmpty()) << "the present name is offered";
      return typed;
    };
  };
  const std::string blurTitle = d.model->nodeByID(d.blur)->kind->title.value();
  struct Rename {
    std::optional<QString> typed;
    std::string shown;
  };
  for (const Rename& r : std::vector<Rename>{{"Flou du fond", "Flou du fond"}, {std::nullopt, "Flou du fond"}, {"", blurTitle}}) {
    answerRename(r.typed);
    menuOn(d.blur, "rename");
    EXPECT_EQ(d.model->nodeByID(d.blur)->title(), r.shown) << r.typed.value_or("(closed)").toStdString();
  }

  // Duplicated: a copy in sight, on no other node; deleted: gone.
  menuOn(d.blur, "duplicate");
  ASSERT_EQ(d.model->_nodes.size(), 4u);
  const Uuid copy = d.model->_nodes.back().id;
  EXPECT_EQ(d.model->_nodes.back().kind->id, "blur");
  d.expectClearAndInSight({copy}, "the copy");
  menuOn(copy, "delete");
  EXPECT_EQ(d.model->nodeByID(copy), nullptr);
  EXPECT_NE(d.model->nodeByID(d.blur), nullptr) << "only the node under the pointer";

  // On a node of the selection, both act on the whole selection.
  d.model->select(d.color, true);
  d.model->select(d.blur, true);
  menuOn(d.blur, "duplicate");
  EXPECT_EQ(d.model->_nodes.size(), 5u);
  d.expectClearAndInSight(d.model->_selection, "the copies");
  menuOn(d.model->_nodes.back().id, "delete");
  EXPECT_EQ(d.model->_nodes.size(), 3u);
}

TEST(NodeEditor, MenuTextsShowTheirAmpersands) {
  // Qt shows a menu text without its shortcut marks; what it shows must be the catalogue's text.
  const AppLanguage saved = interfaceLanguage();
  for (AppLanguage lang : {AppLanguage::french, AppLanguage::english}) {
    setInterfaceLanguage(lang);
    test::shellApp();
    QMenu menu;
    fillKindMenu(menu, [](const KindRef&) {});
    int withAmpersand = 0;
    for (const KindCategory& category : NodeKind::categories()) {
      if (category.kinds.empty()) continue;
      auto* sub = menu.findChild<QMenu*>(QString::fromStdString("category:" + category.name.raw));
      ASSERT_NE(sub, nullptr) << category.name.raw;
      EXPECT_EQ(sub->menuAction()->iconText().toStdString(), category.name.value());
      withAmpersand += category.name.value().find('&') != std::string::npos;
      for (const KindRef& kind : category.kinds) {
        auto* a = sub->findChild<QAction*>(QString::fromStdString("kind:" + kind->id));
        ASSERT_NE(a, nullptr) << kind->id;
        if (kind->title.value().find("...") == std::string::npos) {
          EXPECT_EQ(a->iconText().toStdString(), kind->title.value());
        }
      }
    }
    EXPECT_GE(withAmpersand, 4) << "Peau & beauté, Flou & netteté, Keying & matte, Film & numérique";
  }
  setInterfaceLanguage(saved);
}
