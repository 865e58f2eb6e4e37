// The node editor: the right-click menu of kinds with its categories written as in the catalogue
// ("Flou & netteté"), nodes added behind the same one, "Mes nodes" in the Tab search and the menus.
#include <QLineEdit>

#include "screenshot_views.h"
#include "shell/kind_menu.h"
#include "shell/node_editor.h"
#include "shell/quick_add_panel.h"

namespace ombrik::test {

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
  const QSize list = grabbed(menu).size(), open = grabbed(sub).size();
  QImage picture(list.width() + open.width() + 4, std::max(list.height(), menu.actionGeometry(sub.menuAction()).top() + open.height()) + 2,
                 QImage::Format_RGB32);
  picture.fill(QColor(0x1e, 0x1e, 0x22));
  paintMenu(picture, menu, {1, 1}, &sub);
  return picture;
}
}  // namespace

// A library of the user's nodes; the kinds menu opened in the empty graph under the nodes, its blur
// category open beside it; then a blur added behind the glow by the Tab search, and a tracker behind
// the glow too: where the blur stands now, so it goes beside it, the view following, its own menu open
// on it; then the user's nodes found by the Tab search, in the kinds menu and in the menu bar's own.
void nodeEditorView(Shot& shot) {
  libraryOf(shot.dir.path / "Nodes");
  AppModel model(shot.example());
  ASSERT_EQ(model.userNodes.defs().size(), 2u) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(shot.show(window, model));
  NodeEditor* editor = window.nodeEditor();
  const QPoint click = editor->rect().center() + QPoint(-editor->width() / 5, editor->height() / 3);
  const auto kinds = editor->kindMenu(click, false);
  QMenu* blurs = kinds->findChild<QMenu*>("category:Flou & netteté");
  ASSERT_NE(blurs, nullptr);
  EXPECT_EQ(blurs->menuAction()->iconText(), shot.say("Blur & Sharpen", "Flou & netteté")) << "as written, with its &";
  shot.saveWithMenu(window, "node_editor_add_menu", *kinds, editor->mapTo(&window, click), blurs);

  const Uuid glow = firstOfKind(model, "glow");
  std::vector<Uuid> added;
  auto search = [&](const char* text) {
    editor->setFocus();
    QTest::keyClick(editor, Qt::Key_Tab);
    QuickAddPanel* panel = editor->quickAddPanel();
    EXPECT_TRUE(panel && panel->isVisible());
    if (panel) QTest::keyClicks(panel->field(), text);
    return panel;
  };
  for (const char* kind : {"blur", "tracker"}) {
    model.select(glow);
    QuickAddPanel* panel = search(kind);
    ASSERT_NE(panel, nullptr);
    const auto& found = panel->results();
    const auto it = std::find_if(found.begin(), found.end(), [&](const KindRef& k) { return k->id == kind; });
    ASSERT_NE(it, found.end()) << kind;
    for (auto k = found.begin(); k != it; ++k) QTest::keyClick(panel->field(), Qt::Key_Down);
    QTest::keyClick(panel->field(), Qt::Key_Return);
    added.push_back(model._nodes.back().id);
    EXPECT_EQ(model._nodes.back().kind->id, kind);
  }
  shot.clock->advance(1.0);
  Shot::settle(window);
  const auto own = editor->nodeMenu(added.back());
  ASSERT_NE(own, nullptr);
  const QRectF tracker = editor->nodeRect(added.back());
  shot.saveWithMenu(window, "node_editor_added", *own, editor->mapTo(&window, QPointF(tracker.right(), tracker.center().y()).toPoint()));

  QuickAddPanel* panel = search(shot.say("my nodes", "mes nodes"));
  ASSERT_NE(panel, nullptr);
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
