// The node editor: the right-click menu of kinds with its categories written as in the catalogue
// ("Flou & netteté") and nodes added behind the same one; groups closed and open with the less common
// gestures (an input armed by Alt, a Shift marquee); "Mes nodes" in the Tab search and the menus.
#include <QLineEdit>

#include "screenshot_views.h"
#include "shell/kind_menu.h"
#include "shell/node_editor.h"
#include "shell/quick_add_panel.h"

namespace ombrik::test {

// The kinds menu opened in the empty graph under the nodes, its blur category open beside it; then
// a blur added behind the glow by the Tab search, and a tracker behind the glow too: where the blur
// stands now, so it goes beside it, the view following, its own menu open on it.
void nodeEditorView(Shot& shot) {
  AppModel model(shot.example());
  ASSERT_TRUE(model.engine) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  NodeEditor* editor = window.nodeEditor();
  const QPoint click = editor->rect().center() + QPoint(-editor->width() / 5, editor->height() / 3);
  const auto kinds = editor->kindMenu(click, false);
  QMenu* blurs = kinds->findChild<QMenu*>("category:Flou & netteté");
  ASSERT_NE(blurs, nullptr);
  EXPECT_EQ(blurs->menuAction()->iconText(), shot.say("Blur & Sharpen", "Flou & netteté")) << "as written, with its &";
  QImage picture = window.grab().toImage();
  const QImage list = grabbed(*kinds);
  const QPoint at = paintPopup(picture, list, editor->mapTo(&window, click));
  paintPopup(picture, grabbed(*blurs), at + QPoint(list.width() - 4, kinds->actionGeometry(blurs->menuAction()).top() - 4));
  shot.save(picture, "node_editor_add_menu");

  const Uuid glow = firstOfKind(model, "glow");
  std::vector<Uuid> added;
  for (const char* search : {"blur", "tracker"}) {
    model.select(glow);
    editor->setFocus();
    QTest::keyClick(editor, Qt::Key_Tab);
    QuickAddPanel* panel = editor->quickAddPanel();
    ASSERT_TRUE(panel && panel->isVisible());
    QTest::keyClicks(panel->field(), search);
    const auto& found = panel->results();
    const auto it = std::find_if(found.begin(), found.end(), [&](const KindRef& k) { return k->id == search; });
    ASSERT_NE(it, found.end()) << search;
    for (auto k = found.begin(); k != it; ++k) QTest::keyClick(panel->field(), Qt::Key_Down);
    QTest::keyClick(panel->field(), Qt::Key_Return);
    added.push_back(model._nodes.back().id);
    EXPECT_EQ(model._nodes.back().kind->id, search);
  }
  shot.clock->advance(1.0);
  Shot::settle(window);
  QImage after = window.grab().toImage();
  const auto own = editor->nodeMenu(added.back());
  ASSERT_NE(own, nullptr);
  const QRectF tracker = editor->nodeRect(added.back());
  paintPopup(after, grabbed(*own), editor->mapTo(&window, QPointF(tracker.right(), tracker.center().y()).toPoint()));
  shot.save(after, "node_editor_added");
  for (const Uuid& id : added) {
    const QRectF r = editor->nodeRect(id);
    EXPECT_TRUE(QRectF(editor->rect()).contains(r)) << "in sight";
    for (const Node& other : model._nodes)
      EXPECT_TRUE(other.id == id || !r.intersects(editor->nodeRect(other.id))) << "over " << other.kind->id;
  }
  EXPECT_EQ(own->findChild<QAction*>("duplicate")->text(), shot.say("Duplicate", "Dupliquer"));
}

// A blur and a glow merged into a group with one control: closed with its panel in the inspector,
// then open in its frame; blur's second input armed by a double tap of Alt; a Shift marquee drawn.
void groupsView(Shot& shot) {
  AppModel m(shot.blank(false));
  const Uuid output = m._nodes.front().id;
  m.layout.set(output, {760, 160});
  const Uuid color = m.addNode(NodeKind::color(), {160, 160});
  const Uuid blur = m.addNode(*NodeKind::find("blur"), {340, 120});
  const Uuid glow = m.addNode(NodeKind::glow(), {500, 200});
  m.connect(color, blur, 0, 0);
  m.connect(blur, glow, 0, 0);
  m.connect(glow, output, 0, 0);
  m._selection = {blur, glow};
  m._selected = glow;
  const Uuid group = *m.mergeSelection("Halo doux");
  const ParamSpec& size = (*NodeKind::find("blur"))->params.front();
  m.setGroupControls(group, {{blur, size.key, size.label.value()}});
  m.select(group);
  MainWindow window(m);
  ASSERT_TRUE(shot.show(window, m));
  NodeEditor& editor = *window.nodeEditor();
  editor.frameAll();
  Shot::settle(window);
  shot.save(window.grab().toImage(), "group_closed");

  m.expandGroup(group, false);
  Shot::settle(window);
  editor.frameAll();
  Shot::settle(window);
  EXPECT_FALSE(editor.groupFrame(group).isEmpty());
  shot.save(window.grab().toImage(), "group_open");

  editor.setFocus();
  QTest::mouseMove(&editor, editor.toView(*m.layout.position(blur)).toPoint());
  QTest::qWait(50);  // the X server's move reaches the editor
  QTest::keyClick(&editor, Qt::Key_Alt);
  QTest::keyClick(&editor, Qt::Key_Alt);
  Shot::settle(window);
  EXPECT_TRUE(editor.armedInput());
  shot.save(window.grab().toImage(), "node_editor_armed_input");
  QTest::keyClick(&editor, Qt::Key_Escape);

  // Around the correction and the blur, not yet let go.
  const QPoint from = editor.toView({100, 40}).toPoint(), to = editor.toView({400, 220}).toPoint();
  QTest::mousePress(&editor, Qt::LeftButton, Qt::ShiftModifier, from);
  for (int k = 1; k <= 4; ++k) QTest::mouseMove(&editor, from + (to - from) * k / 4);
  Shot::settle(window);
  shot.save(window.grab().toImage(), "node_editor_marquee");
  QTest::mouseRelease(&editor, Qt::LeftButton, Qt::ShiftModifier, to);
  EXPECT_TRUE(m.isSelected(color) && m.isSelected(blur));
}

namespace {
// A code node and a saved group in the library at `folder`.
void libraryOf(const std::filesystem::path& folder) {
  UserNodes lib(folder);
  UserNodeDef code;
  code.id = "user.gain0001";
  code.name = "Gain maison";
  code.info = "Multiplie l'image et la relève d'un dixième.";
  code.params = {{"gain", "Gain", 0, 4, 2, {}, {}, {}, {}}};
  code.code = "o.rgb = s.rgb * gain + vec3(0.1);";
  lib.register_(code, {}, true);
  Node inner(*NodeKind::find("invert"));
  NodeGroup g;
  g.nodes = {inner};
  g.output = inner.id;
  g.inputs = {{"Front", false, {{inner.id, 0}}}, {"Matte", true, {{inner.id, 1}}}};
  UserNodeDef look;
  look.id = "usergroup.look0001";
  look.name = "Look nuit";
  look.group = GroupRef(g, look.name, {});
  lib.register_(look, {}, true);
}

// A menu drawn with one of its submenus beside the entry that opens it.
QImage withSubmenu(QMenu& menu, QMenu& sub) {
  const QImage list = grabbed(menu), open = grabbed(sub);
  const int top = menu.actionGeometry(sub.menuAction()).top();
  QImage picture(list.width() + open.width() + 8, std::max(list.height(), top + open.height()), QImage::Format_RGB32);
  picture.fill(QColor(0x1e, 0x1e, 0x22));
  QPainter p(&picture);
  p.drawImage(0, 0, list);
  p.drawImage(list.width() + 4, top, open);
  return picture;
}
}  // namespace

// Both found by the Tab search, the kinds menu with its "Mes nodes" submenu, the menu bar's own.
void myNodesView(Shot& shot) {
  libraryOf(shot.dir.path / "Nodes");
  AppModel model(shot.example());
  ASSERT_EQ(model.userNodes.defs().size(), 2u) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  NodeEditor* editor = window.nodeEditor();
  editor->setFocus();
  QTest::keyClick(editor, Qt::Key_Tab);
  QuickAddPanel* panel = editor->quickAddPanel();
  ASSERT_TRUE(panel && panel->isVisible());
  QTest::keyClicks(panel->field(), shot.say("my nodes", "mes nodes"));
  ASSERT_EQ(panel->results().size(), 2u);
  QCoreApplication::processEvents();
  // The panel is a window of its own: drawn into the window's picture where it stands.
  QImage searched = window.grab().toImage();
  QPainter(&searched).drawImage(window.mapFromGlobal(panel->mapToGlobal(QPoint(0, 0))), panel->grab().toImage());
  shot.save(searched, "user_nodes_search");
  QTest::keyClick(panel->field(), Qt::Key_Escape);

  QMenu menu;
  fillKindMenu(menu, [](const KindRef&) {}, model.userNodes.kinds());
  QMenu* mine = menu.findChild<QMenu*>("category:Mes nodes");
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(mine->menuAction()->iconText(), shot.say("My nodes", "Mes nodes"));
  ASSERT_NE(mine->findChild<QAction*>("kind:usergroup.look0001"), nullptr);
  shot.save(withSubmenu(menu, *mine), "user_nodes_menu");

  QMenu* bar = window.findChild<QMenu*>("userNodesMenu");
  ASSERT_NE(bar, nullptr);
  emit bar->aboutToShow();
  QMenu* group = nullptr;
  for (QAction* a : bar->actions())
    if (a->menu() && a->menu()->findChild<QAction*>("place:usergroup.look0001")) group = a->menu();
  ASSERT_NE(group, nullptr) << "a saved group's entries in the menu bar";
  shot.save(withSubmenu(*bar, *group), "user_nodes_bar_menu");
}

}  // namespace ombrik::test
