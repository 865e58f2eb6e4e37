// The node editor by hand: selecting, moving, deleting, copying, wires, adding nodes, a node's
// own menu, and navigating.
#include <QWheelEvent>

#include "document/history_state.h"
#include "platform/string_catalogue.h"
#include "shell/kind_menu.h"
#include "editor_desk.h"

using namespace ombrik;
using ombrik::test::Desk;
using ombrik::test::Link;

TEST(NodeEditor, ClicksSelectDragsMoveTheSelectionAndKeysDeleteCopyAndPaste) {
  Desk d;
  EXPECT_GT(d.editor->view().zoom, 0.5) << "framed at the editor's size";
  d.click(d.color);
  EXPECT_EQ(d.model->_selected, d.color);
  d.click(d.blur, Qt::ControlModifier);
  EXPECT_EQ(d.selected(), (std::set<Uuid>{d.color, d.blur}));
  const double z = d.editor->view().zoom;
  d.drag(d.centre(d.blur), d.centre(d.blur) + QPoint(60, 30));
  EXPECT_NEAR(d.pos(d.blur).x, 400 + 60 / z, 1.5);
  EXPECT_NEAR(d.pos(d.blur).y, 140 + 30 / z, 1.5);
  EXPECT_NEAR(d.pos(d.color).x, 200 + 60 / z, 1.5) << "the selection moves as one";
  EXPECT_EQ(d.pos(d.output).x, 600) << "what isn't selected stays";

  // A plain click on a selected node leaves it alone in the selection; a click on nothing clears.
  d.click(d.color);
  EXPECT_EQ(d.selected(), std::set<Uuid>{d.color});
  d.click(d.at({300, 400}));
  EXPECT_FALSE(d.model->_selected);

  // Copied and pasted: the copies are the new selection, in sight (their layout: the model's tests).
  d.click(d.color);
  d.click(d.blur, Qt::ControlModifier);
  d.key(Qt::Key_C, Qt::ControlModifier);
  d.key(Qt::Key_V, Qt::ControlModifier);
  ASSERT_EQ(d.model->_nodes.size(), 5u);
  EXPECT_EQ(d.model->_selection.size(), 2u) << "the copies are the new selection";
  d.expectClearAndInSight(d.model->_selection);
  d.key(Qt::Key_Delete);
  EXPECT_EQ(d.model->_nodes.size(), 3u);
  d.click(d.color);
  d.key(Qt::Key_Backspace);
  EXPECT_EQ(d.model->nodeByID(d.color), nullptr);
  d.click(d.output);
  d.key(Qt::Key_Delete);
  EXPECT_NE(d.model->nodeByID(d.output), nullptr) << "the output is never deleted";
}

TEST(NodeEditor, WiresAreDrawnFromOutputsPickedUpFromInputsAndCut) {
  Desk d;
  d.drag(d.outPort(d.color), d.centre(d.blur));  // onto a node's body: the first fitting input
  d.drag(d.outPort(d.blur), d.inPort(d.output, 1));  // onto an input port: that very port, even a matte one
  EXPECT_EQ(d.links(), (std::set<Link>{{d.color, d.blur, 0}, {d.blur, d.output, 1}}));
  d.drag(d.inPort(d.output, 1), d.inPort(d.output, 0));  // picked up and moved to another input
  d.drag(d.outPort(d.blur), d.centre(d.color));          // a wire that would loop back is refused
  EXPECT_EQ(d.links(), (std::set<Link>{{d.color, d.blur, 0}, {d.blur, d.output, 0}}));

  // A stroke through the empty background across the first wire cuts it only.
  const QPoint mid = (d.outPort(d.color) + d.inPort(d.blur, 0)) / 2;
  d.drag(mid + QPoint(0, -40), mid + QPoint(0, 40));
  EXPECT_EQ(d.links(), (std::set<Link>{{d.blur, d.output, 0}}));
  d.drag(d.inPort(d.output, 0), d.at({500, 420}));
  EXPECT_TRUE(d.model->_edges.empty()) << "picked up and let go in the void: removed";
}

TEST(NodeEditor, KindsMenuAndSearchAddAtThePointerAfterTheSelectionOrAtTheEndOfAWire) {
  Desk d;
  ASSERT_TRUE(d.menuAt(d.at({300, 350}), "kind:glow"));
  ASSERT_EQ(d.model->_nodes.size(), 4u);
  const Uuid glow = d.model->_nodes.back().id;
  EXPECT_EQ(d.model->_nodes.back().kind->id, "glow");
  EXPECT_NEAR(d.pos(glow).x, 300, 2);
  EXPECT_NEAR(d.pos(glow).y, 350, 2);

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
  EXPECT_EQ(d.model->_nodes.back().kind->id, "blur");
  EXPECT_TRUE(d.wired(glow, d.model->_nodes.back().id, 0));
  EXPECT_FALSE(d.model->quickAddLink) << "the pending link is used up";

  // Closing the search without a choice adds nothing and forgets the link.
  d.drag(d.outPort(d.color), d.at({100, 420}));
  ASSERT_TRUE(panel->isVisible());
  d.search("zzz nothing", false);
  EXPECT_TRUE(panel->results().empty());
  EXPECT_TRUE(panel->isVisible()) << "nothing to add";
  QTest::keyClick(panel->field(), Qt::Key_Escape);
  EXPECT_FALSE(panel->isVisible());
  EXPECT_EQ(d.model->_nodes.size(), 5u);
  EXPECT_FALSE(d.model->quickAddLink);

  // Tab: the chosen kind goes behind the selected node and takes over its wires; ↓ moves the choice.
  d.drag(d.outPort(d.color), d.centre(d.blur));
  d.click(d.color);
  d.key(Qt::Key_Tab);
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

TEST(NodeEditor, WheelPansCtrlWheelZoomsAboutThePointerAndFFrames) {
  Desk d;
  const schematic::View before = d.editor->view();
  auto wheel = [&](int dy, Qt::KeyboardModifiers mods) {
    QWheelEvent e(QPointF(300, 200), d.editor->mapToGlobal(QPointF(300, 200)), QPoint(), QPoint(0, dy), Qt::NoButton,
                  mods, Qt::NoScrollPhase, false);
    QApplication::sendEvent(d.editor.get(), &e);
  };
  wheel(-120, Qt::NoModifier);
  EXPECT_EQ(d.editor->view().zoom, before.zoom);
  EXPECT_LT(d.editor->view().pan.y, before.pan.y);
  EXPECT_EQ(d.editor->view().pan.x, before.pan.x);
  const Point under = d.editor->toGraph({300, 200});
  wheel(120, Qt::ControlModifier);
  EXPECT_GT(d.editor->view().zoom, before.zoom);
  EXPECT_NEAR(d.editor->toView(under).x(), 300, 1e-6);
  EXPECT_NEAR(d.editor->toView(under).y(), 200, 1e-6);
  // The middle button drags the whole graph.
  const schematic::View held = d.editor->view();
  d.panBy({50, 30});
  EXPECT_NEAR(d.editor->view().pan.x, held.pan.x + 50, 1e-9);
  EXPECT_NEAR(d.editor->view().pan.y, held.pan.y + 30, 1e-9);
  EXPECT_EQ(d.pos(d.color).x, 200) << "navigation moves no node";

  // F frames every node with nothing selected, else the selection.
  d.panBy({-2000, 900});
  d.key(Qt::Key_F);
  d.expectClearAndInSight({d.output, d.color, d.blur}, "nothing selected");
  d.panBy({700, -700});
  d.model->select(d.color);  // out of sight now
  d.key(Qt::Key_F);
  EXPECT_EQ(d.editor->view().zoom, schematic::kFrameZoomLimit) << "one node is not blown up";
  const QPointF middle = QRectF(d.editor->rect()).center();
  EXPECT_NEAR(d.editor->toView(d.pos(d.color)).x(), middle.x(), 1);
  EXPECT_NEAR(d.editor->toView(d.pos(d.color)).y(), middle.y(), 1);
  d.key(Qt::Key_F, Qt::ControlModifier);
  EXPECT_EQ(d.editor->view().zoom, schematic::kFrameZoomLimit) << "only the bare key";
}

TEST(NodeEditor, ANodeDraggedAloneSnapsOntoTheNodeItTouches) {
  Desk d;
  // Let go just right of the correction, a little lower: wired into the blur's picture input.
  d.drag(d.centre(d.blur), d.at({262, 150}), {}, [&] { EXPECT_TRUE(d.model->interactiveDrag) << "the model knows"; });
  EXPECT_FALSE(d.model->interactiveDrag);
  EXPECT_EQ(d.links(), (std::set<Link>{{d.color, d.blur, 0}}));

  // Several nodes moved together never snap.
  const Uuid glow = d.add("glow", {400, 300});
  d.editor->refresh();
  d.click(glow);
  d.click(d.output, Qt::ControlModifier);
  d.clock->advance(1);
  const QPoint touching = d.centre(d.blur) + (d.at({62, 8}) - d.at({0, 0}));
  // As if a change was held back while the nodes moved: it renders once the drag ends.
  d.drag(d.centre(glow), touching, {}, [&] { d.model->renderPendingAfterDrag = true; });
  EXPECT_EQ(d.model->_edges.size(), 1u);
  EXPECT_TRUE(d.model->renderQueued);
  EXPECT_FALSE(d.model->renderPendingAfterDrag);
}

TEST(NodeEditor, ANodeDroppedOnAWireGoesIntoItCtrlShiftIntercalates) {
  Desk d;
  d.model->connect(d.color, d.blur, 0, 0);
  d.model->connect(d.blur, d.output, 0, 0);
  const Uuid glow = d.add("glow", {250, 300}), sharpen = d.add("sharpen", {550, 300});
  d.model->connect(glow, sharpen, 0, 0);
  d.editor->frameAll();
  auto middleOf = [&](const Uuid& from, const Uuid& to) {
    const Point a = schematic::outPos(*d.model->nodeByID(from), d.pos(from), 0);
    const Point b = schematic::inPos(*d.model->nodeByID(to), d.pos(to), 0);
    return d.at(schematic::wireCurve(a, b, schematic::kHitBend).at(0.5));
  };
  // Plainly dropped, the blur is added on the lower wire; its picture input now comes from the wire.
  d.drag(d.centre(d.blur), middleOf(glow, sharpen));
  EXPECT_EQ(d.links(), (std::set<Link>{{glow, d.blur, 0}, {d.blur, sharpen, 0}, {d.blur, d.output, 0}}));

  // Fed by the blur, the sharpen can't simply go in front of it; with Ctrl+Shift it leaves its
  // place first (closed up behind it), so it can.
  d.model->layout.set(d.blur, {400, 140});
  d.model->connect(d.color, d.blur, 0, 0);
  const QPoint from = d.centre(sharpen), upperWire = middleOf(d.color, d.blur);
  QTest::mousePress(d.editor.get(), Qt::LeftButton, {}, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(d.editor.get(), from + (upperWire - from) * k / 4);
  QTest::mouseRelease(d.editor.get(), Qt::LeftButton, Qt::ControlModifier | Qt::ShiftModifier, upperWire);
  EXPECT_EQ(d.links(), (std::set<Link>{{d.color, sharpen, 0}, {sharpen, d.blur, 0}, {d.blur, d.output, 0}}));
}

TEST(NodeEditor, DropBandsDeleteOrLockTheViewer) {
  Desk d;
  d.clock->advance(1);  // the nodes are one undo step, what follows another
  const QPoint trash(20, d.editor->height() - 10), context(d.editor->width() - 20, d.editor->height() - 10);
  // The whole selection goes to the trash with the node dragged from it; undo brings it back.
  d.click(d.color);
  d.click(d.blur, Qt::ControlModifier);
  d.drag(d.centre(d.blur), trash);
  EXPECT_EQ(d.model->nodeByID(d.blur), nullptr);
  EXPECT_EQ(d.model->nodeByID(d.color), nullptr);
  d.model->undo();
  ASSERT_NE(d.model->nodeByID(d.color), nullptr);
  ASSERT_NE(d.model->nodeByID(d.blur), nullptr);
  EXPECT_EQ(d.pos(d.blur), (Point{400, 140}));

  // The context band locks the viewer on the node, whatever is selected next.
  d.model->select(std::nullopt);
  d.editor->refresh();
  d.drag(d.centre(d.color), context);
  EXPECT_TRUE(d.model->_viewLocked);
  EXPECT_EQ(d.model->displayedNodeID(), d.color);
  EXPECT_EQ(d.pos(d.color), (Point{200, 140})) << "a drop on a band moves nothing";
  d.click(d.blur);
  EXPECT_EQ(d.model->_selected, d.blur);
  EXPECT_EQ(d.model->displayedNodeID(), d.color);
  d.drag(d.centre(d.color), context);
  EXPECT_FALSE(d.model->_viewLocked) << "the same node again releases it";
}

TEST(NodeEditor, DoubleClickLocksTheInspectorAndDBypasses) {
  Desk d;
  QTest::mouseDClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  EXPECT_EQ(d.model->inspectorLock, d.blur);
  QTest::mouseDClick(d.editor.get(), Qt::LeftButton, {}, d.centre(d.blur));
  EXPECT_FALSE(d.model->inspectorLock) << "the same node again releases it";

  d.clock->advance(1);
  d.click(d.color);
  d.click(d.blur, Qt::ControlModifier);
  auto bypassed = [&] { return std::pair(d.model->nodeByID(d.color)->bypass, d.model->nodeByID(d.blur)->bypass); };
  d.key(Qt::Key_D);
  EXPECT_EQ(bypassed(), std::pair(true, true));
  d.model->undo();
  EXPECT_EQ(bypassed(), std::pair(false, false));
  d.key(Qt::Key_D, Qt::ControlModifier);
  EXPECT_EQ(bypassed(), std::pair(false, false)) << "only the bare key";
  d.model->setBypass(d.color, true);
  d.key(Qt::Key_D);
  EXPECT_EQ(bypassed(), std::pair(true, true)) << "a mixed selection is bypassed as a whole first";
  ASSERT_TRUE(d.menuAt(d.centre(d.output), "bypass"));
  EXPECT_TRUE(d.model->nodeByID(d.output)->bypass) << "the node's own menu toggles the node under the pointer";
  EXPECT_EQ(bypassed(), std::pair(true, true)) << "and that one only";
}

TEST(NodeEditor, PullingATouchingNodeAwayCutsTheirWire) {
  Desk d;
  d.model->layout.set(d.blur, {270, 140});  // touching the correction
  d.model->connect(d.color, d.blur, 0, 0);
  d.editor->refresh();
  // A little apart: a warning, and the wire stays.
  std::string warned;
  d.drag(d.centre(d.blur), d.at({300, 140}), {}, [&] { warned = d.model->_status; });
  EXPECT_FALSE(warned.empty());
  EXPECT_TRUE(d.wired(d.color, d.blur, 0));
  EXPECT_TRUE(d.model->_status.empty());

  // Touching again, then pulled well apart: cut on release, and undo brings it back.
  d.model->layout.set(d.blur, {270, 140});
  d.editor->refresh();
  d.clock->advance(HistoryState::kQuiet + 0.1);  // a pause: what was done becomes one step of the history
  d.drag(d.centre(d.blur), d.at({420, 140}), {}, [&] { EXPECT_NE(d.model->_status, warned) << "now: let go to cut"; });
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
  const struct {
    const char* what;
    std::function<void(Desk&)> before;  // the view and selection when the node is added
    std::function<void(Desk&)> add;
  } cases[] = {
      {"the menu opened on a node's name", [](Desk&) {},
       [](Desk& d) { EXPECT_TRUE(d.menuAt(d.at({200, 185}), "kind:glow")); }},
      {"after a node the view shows only the top of", [](Desk& d) {
         d.model->select(d.blur);
         d.editor->refresh();
         d.panBy({0, d.editor->height() - 40 - d.centre(d.blur).y()});  // what goes below it is out of the view
       }, [](Desk& d) { d.search("grain"); }},
      {"twice after the same node: the second beside the first", [](Desk& d) {
         d.model->select(d.blur);
         d.model->addEffect(*NodeKind::find("glow"));
         d.editor->refresh();
         d.model->select(d.blur);
       }, [](Desk& d) { d.search("sharpen"); }},
      {"behind the selection with nothing selected", [](Desk&) {}, [](Desk& d) { d.search("blur"); }},
      {"at the end of a wire dropped on a node's name", [](Desk& d) { d.model->select(d.blur); }, [](Desk& d) {
         d.drag(d.outPort(d.color), d.at({400, 230}));  // under the blur, too far for its inputs
         ASSERT_TRUE(d.editor->quickAddPanel() && d.editor->quickAddPanel()->isVisible());
         d.search("glow", false);
       }},
  };
  for (const auto& c : cases) {
    Desk d;
    c.before(d);
    const std::size_t count = d.model->_nodes.size();
    c.add(d);
    ASSERT_EQ(d.model->_nodes.size(), count + 1) << c.what;
    d.expectClearAndInSight({d.model->_nodes.back().id}, c.what);
  }
}

TEST(NodeEditor, ANodesMenuRenamesDuplicatesAndDeletes) {
  Desk d;
  // Typed, then the dialog closed (emptied names: the model's tests).
  const std::pair<std::optional<QString>, std::string> renames[] = {{"Flou du fond", "Flou du fond"}, {std::nullopt, "Flou du fond"}};
  for (const auto& [typed, shown] : renames) {
    d.editor->askName = [typed](const QString& present) {
      EXPECT_FALSE(present.isEmpty()) << "the present name is offered";
      return typed;
    };
    ASSERT_TRUE(d.menuAt(d.centre(d.blur), "rename"));
    EXPECT_EQ(d.model->nodeByID(d.blur)->title(), shown) << typed.value_or("(closed)").toStdString();
  }
  // Duplicated: a copy in sight, on no other node; deleted: only the node under the pointer.
  ASSERT_TRUE(d.menuAt(d.centre(d.blur), "duplicate"));
  ASSERT_EQ(d.model->_nodes.size(), 4u);
  const Uuid copy = d.model->_nodes.back().id;
  EXPECT_EQ(d.model->_nodes.back().kind->id, "blur");
  d.expectClearAndInSight({copy}, "the copy");
  ASSERT_TRUE(d.menuAt(d.centre(copy), "delete"));
  EXPECT_EQ(d.model->nodeByID(copy), nullptr);
  EXPECT_NE(d.model->nodeByID(d.blur), nullptr);
  // On a node of the selection, both act on the whole selection.
  d.model->select(d.color, true);
  d.model->select(d.blur, true);
  ASSERT_TRUE(d.menuAt(d.centre(d.blur), "duplicate"));
  EXPECT_EQ(d.model->_nodes.size(), 5u);
  d.expectClearAndInSight(d.model->_selection, "the copies");
  ASSERT_TRUE(d.menuAt(d.centre(d.model->_nodes.back().id), "delete"));
  EXPECT_EQ(d.model->_nodes.size(), 3u);
}

// Qt shows a menu text without its shortcut marks; what it shows must be the catalogue's text.
TEST(NodeEditor, MenuTextsShowTheirAmpersands) {
  test::shellApp();
  const AppLanguage saved = interfaceLanguage();
  for (AppLanguage lang : {AppLanguage::french, AppLanguage::english}) {
    setInterfaceLanguage(lang);
    QMenu menu;
    fillKindMenu(menu, [](const KindRef&) {});
    for (const KindCategory& category : NodeKind::categories()) {
      if (category.kinds.empty()) continue;
      auto* sub = menu.findChild<QMenu*>(QString::fromStdString("category:" + category.name.raw));
      ASSERT_NE(sub, nullptr) << category.name.raw;
      EXPECT_EQ(sub->menuAction()->iconText().toStdString(), category.name.value());
      for (const KindRef& kind : category.kinds) {
        auto* a = sub->findChild<QAction*>(QString::fromStdString("kind:" + kind->id));
        ASSERT_NE(a, nullptr) << kind->id;
        if (kind->title.value().find("...") == std::string::npos) {
          EXPECT_EQ(a->iconText().toStdString(), kind->title.value());
        }
      }
    }
  }
  setInterfaceLanguage(saved);
}
