// Groups by hand: the keys that fold, close and dissolve, opening by a double click, the framed
// open group and its chip, the node's menu, and the group's own panel in the inspector.
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>

#include "shell/group_settings.h"
#include "shell/inspector_widget.h"
#include "shell/node_editor.h"
#include "shell/param_row.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

// A correction feeding a blur feeding the output, the first two selected, in the window.
struct Chain : test::WindowDesk {
  Uuid output = m->_nodes.front().id;
  Uuid color = m->addNode(NodeKind::color(), {200, 140});
  Uuid blur = m->addNode(*NodeKind::find("blur"), {400, 140});
  NodeEditor& editor = *window->nodeEditor();
  Chain() {
    m->connect(color, blur, 0, 0);
    m->connect(blur, output, 0, 0);
    m->_selection = {color, blur};
    m->_selected = blur;
    refresh();
  }
  const Node* group() const {
    for (const Node& n : m->_nodes)
      if (n.group) return &n;
    return nullptr;
  }
  void refresh() {
    window->refresh();
    editor.refresh();
  }
  QPoint at(const Uuid& id) const { return editor.toView(*m->layout.position(id)).toPoint(); }
};

}  // namespace

TEST(GroupEditing, KeysFoldCloseAndDissolveAndADoubleClickOpens) {
  Chain c;
  MainWindow& window = *c.window;
  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
  ASSERT_NE(c.group(), nullptr);
  const Uuid id = c.group()->id;
  EXPECT_EQ(c.m->_nodes.size(), 2u) << "the output and the group";
  c.refresh();

  // Esc first takes the keyboard from a text field being typed in (the group's name here).
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  auto* name = window.inspector()->groupSettings()->findChild<QLineEdit*>("groupName");
  name->setFocus();
  ASSERT_TRUE(name->hasFocus());
  QTest::keyClick(name, Qt::Key_Escape);
  EXPECT_FALSE(name->hasFocus());

  // A double click on the group opens it: its nodes are back, framed.
  QTest::mouseDClick(&c.editor, Qt::LeftButton, {}, c.at(id));
  ASSERT_EQ(c.m->_openGroups.size(), 1u);
  c.refresh();
  const QRectF frame = c.editor.groupFrame(id);
  for (const Uuid& member : {c.color, c.blur}) EXPECT_TRUE(frame.contains(c.at(member))) << "its members inside";
  EXPECT_FALSE(frame.contains(c.at(c.output))) << "the output outside";
  EXPECT_TRUE(frame.contains(c.editor.closeChip(id)));

  // Ctrl+G with its nodes selected closes it under the same id; the chip closes it too.
  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
  EXPECT_TRUE(c.m->_openGroups.empty());
  ASSERT_NE(c.m->nodeByID(id), nullptr);
  c.refresh();
  QTest::mouseDClick(&c.editor, Qt::LeftButton, {}, c.at(id));
  c.refresh();
  ASSERT_EQ(c.m->_openGroups.size(), 1u) << "opened again by the double-click";
  ASSERT_FALSE(c.editor.closeChip(id).isEmpty());
  QTest::mouseClick(&c.editor, Qt::LeftButton, {}, c.editor.closeChip(id).center().toPoint());
  EXPECT_TRUE(c.m->_openGroups.empty());
  EXPECT_TRUE(c.editor.groupFrame(id).isEmpty());
  ASSERT_NE(c.m->nodeByID(id), nullptr);

  // Ctrl+Alt+G on the selected group dissolves it for good.
  c.m->select(id);
  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier | Qt::AltModifier);
  EXPECT_EQ(c.group(), nullptr);
  EXPECT_TRUE(c.m->_openGroups.empty());
  EXPECT_EQ(c.m->_nodes.size(), 3u);

  // In the window, a tap of Alt over the graph arms an input and leaves the keyboard there (the
  // menu bar would take it), so that the next tap arms the next input. As X sends it: the
  // shortcut check first, Alt among the modifiers.
  c.editor.setFocus();
  QTest::mouseMove(&c.editor, c.at(c.blur));
  auto tapAlt = [&] {
    for (QEvent::Type type : {QEvent::ShortcutOverride, QEvent::KeyPress, QEvent::KeyRelease}) {
      QKeyEvent key(type, Qt::Key_Alt, Qt::AltModifier);
      QApplication::sendEvent(QApplication::focusWidget(), &key);
    }
  };
  tapAlt();
  ASSERT_TRUE(c.editor.armedInput());
  const int first = c.editor.armedInput()->port;
  EXPECT_TRUE(c.editor.hasFocus()) << "not taken by the menu bar";
  tapAlt();
  EXPECT_NE(c.editor.armedInput()->port, first);
  QTest::keyClick(&c.editor, Qt::Key_Escape);
  EXPECT_FALSE(c.editor.armedInput());
}

TEST(GroupEditing, TheNodeMenuGroupsAndTheGroupPanelRenamesAndChoosesTheSettingsShown) {
  Chain c;
  c.editor.nodeMenu(c.color)->findChild<QAction*>("mergeSelection")->trigger();
  ASSERT_NE(c.group(), nullptr);
  const Uuid id = c.group()->id;
  EXPECT_EQ(c.group()->group->nodes.size(), 2u) << "the whole selection it was opened on";
  EXPECT_FALSE(c.editor.nodeMenu(c.output)->findChild<QAction*>("mergeSelection")->isEnabled()) << "the output stays out";
  c.editor.nodeMenu(id)->findChild<QAction*>("openGroup")->trigger();
  EXPECT_EQ(c.m->_openGroups.size(), 1u);
  c.editor.nodeMenu(c.color)->findChild<QAction*>("closeGroup")->trigger();
  EXPECT_TRUE(c.m->_openGroups.empty());

  InspectorWidget& inspector = *c.window->inspector();
  c.m->select(id);
  c.refresh();
  GroupSettings* panel = inspector.groupSettings();
  ASSERT_TRUE(panel->isVisible());
  auto* name = panel->findChild<QLineEdit*>("groupName");
  EXPECT_EQ(name->text().toStdString(), c.m->nodeByID(id)->title());
  name->setFocus();
  name->selectAll();
  QTest::keyClicks(name, "Douceur");
  QTest::keyClick(name, Qt::Key_Return);
  EXPECT_EQ(c.m->nodeByID(id)->title(), "Douceur");

  // A setting of the inner blur, chosen from the menu, becomes the group's first row.
  const ParamSpec& size = (*NodeKind::find("blur"))->params.front();
  auto menu = panel->addMenu();
  auto* inner = menu->findChild<QMenu*>(QString::fromStdString("inner:" + c.blur.toString()));
  ASSERT_NE(inner, nullptr);
  inner->findChild<QAction*>(QString::fromStdString(size.key))->trigger();
  ASSERT_EQ(c.m->nodeByID(id)->group->controls.size(), 1u);
  inspector.refresh();
  ASSERT_NE(inspector.row("c0"), nullptr);
  EXPECT_EQ(inspector.row("c0")->spec().max, size.max) << "the inner setting's range";
  EXPECT_FALSE(panel->addMenu()->findChild<QAction*>(QString::fromStdString(size.key))->isEnabled()) << "shown once";
  panel->findChild<QToolButton*>("removeGroupControl:0")->click();
  EXPECT_TRUE(c.m->nodeByID(id)->group->controls.empty());
  inspector.refresh();
  EXPECT_EQ(inspector.row("c0"), nullptr);

  panel->findChild<QPushButton*>("openGroup")->click();
  EXPECT_EQ(c.m->_openGroups.size(), 1u);
  c.refresh();
  EXPECT_FALSE(panel->isVisible()) << "no group inspected now";
}
