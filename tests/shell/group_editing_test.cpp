// Groups by hand: Ctrl+G folds the selection and closes an open group, Ctrl+Alt+G dissolves, a
// double click opens a group node, an open group is framed around its nodes and closes from its
// chip, and the group's own panel in the inspector renames it and picks the settings it shows.
#include <gtest/gtest.h>

#include <QApplication>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include "../document/temp_model.h"
#include "document/app_model.h"
#include "shell/group_settings.h"
#include "shell/inspector_widget.h"
#include "shell/main_window.h"
#include "shell/node_editor.h"
#include "shell/param_row.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

// A correction feeding a blur feeding the output, the first two selected.
struct Chain {
  TempDir dir;
  AppModel model{test::tempModelOptions(dir, std::make_shared<ManualScheduler>(), false)};
  Uuid output, color, blur;
  Chain() {
    test::shellApp();
    output = model._nodes.front().id;
    color = model.addNode(NodeKind::color(), {200, 140});
    blur = model.addNode(*NodeKind::find("blur"), {400, 140});
    model.connect(color, blur, 0, 0);
    model.connect(blur, output, 0, 0);
    model._selection = {color, blur};
    model._selected = blur;
  }
  const Node* group() const {
    for (const Node& n : model._nodes)
      if (n.group) return &n;
    return nullptr;
  }
};

}  // namespace

TEST(GroupEditing, KeysFoldCloseAndDissolveAndADoubleClickOpens) {
  Chain c;
  MainWindow window(c.model);
  window.show();
  ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
  NodeEditor& editor = *window.nodeEditor();
  auto refresh = [&] {
    window.refresh();
    editor.refresh();
  };
  refresh();

  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
  ASSERT_NE(c.group(), nullptr);
  const Uuid id = c.group()->id;
  EXPECT_EQ(c.model._nodes.size(), 2u) << "the output and the group";
  refresh();

  // Esc first takes the keyboard from a text field being typed in (the group's name here).
  window.activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
  auto* name = window.inspector()->groupSettings()->findChild<QLineEdit*>("groupName");
  name->setFocus();
  ASSERT_TRUE(name->hasFocus());
  QTest::keyClick(name, Qt::Key_Escape);
  EXPECT_FALSE(name->hasFocus());

  // A double click on the group opens it: its nodes are back, framed.
  const QPoint at = editor.toView(*c.model.layout.position(id)).toPoint();
  QTest::mouseDClick(&editor, Qt::LeftButton, {}, at);
  ASSERT_EQ(c.model._openGroups.size(), 1u);
  refresh();
  const QRectF frame = editor.groupFrame(id);
  for (const Uuid& member : {c.color, c.blur})
    EXPECT_TRUE(frame.contains(editor.toView(*c.model.layout.position(member)))) << "its members inside";
  EXPECT_FALSE(frame.contains(editor.toView(*c.model.layout.position(c.output)))) << "the output outside";
  EXPECT_TRUE(frame.contains(editor.closeChip(id)));

  // Ctrl+G with its nodes selected closes it under the same id; the chip closes it too.
  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
  EXPECT_TRUE(c.model._openGroups.empty());
  ASSERT_NE(c.model.nodeByID(id), nullptr);
  refresh();
  QTest::mouseDClick(&editor, Qt::LeftButton, {}, editor.toView(*c.model.layout.position(id)).toPoint());
  refresh();
  ASSERT_EQ(c.model._openGroups.size(), 1u) << "opened again by the double-click";
  ASSERT_FALSE(editor.closeChip(id).isEmpty());
  QTest::mouseClick(&editor, Qt::LeftButton, {}, editor.closeChip(id).center().toPoint());
  EXPECT_TRUE(c.model._openGroups.empty());
  EXPECT_TRUE(editor.groupFrame(id).isEmpty());
  ASSERT_NE(c.model.nodeByID(id), nullptr);

  // Ctrl+Alt+G on the selected group dissolves it for good.
  c.model.select(id);
  QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier | Qt::AltModifier);
  EXPECT_EQ(c.group(), nullptr);
  EXPECT_TRUE(c.model._openGroups.empty());
  EXPECT_EQ(c.model._nodes.size(), 3u);

  // In the window, a tap of Alt over the graph arms an input and leaves the keyboard there (the
  // menu bar would take it), so that the next tap arms the next input. As X sends it: the
  // shortcut check first, Alt among the modifiers.
  editor.setFocus();
  QTest::mouseMove(&editor, editor.toView(*c.model.layout.position(c.blur)).toPoint());
  auto tapAlt = [&] {
    for (QEvent::Type type : {QEvent::ShortcutOverride, QEvent::KeyPress, QEvent::KeyRelease}) {
      QKeyEvent key(type, Qt::Key_Alt, Qt::AltModifier);
      QApplication::sendEvent(QApplication::focusWidget(), &key);
    }
  };
  tapAlt();
  ASSERT_TRUE(editor.armedInput());
  const int first = editor.armedInput()->port;
  EXPECT_TRUE(editor.hasFocus()) << "not taken by the menu bar";
  tapAlt();
  EXPECT_NE(editor.armedInput()->port, first);
  QTest::keyClick(&editor, Qt::Key_Escape);
  EXPECT_FALSE(editor.armedInput());

  // A double click on a plain node still locks the inspector on it.
  refresh();
  QTest::mouseDClick(&editor, Qt::LeftButton, {}, editor.toView(*c.model.layout.position(c.output)).toPoint());
  EXPECT_EQ(c.model.inspectorLock, c.output);
}

TEST(GroupEditing, TheNodeMenuGroupsTheSelectionAndOpensAGroup) {
  Chain c;
  NodeEditor editor(c.model);
  auto menu = editor.nodeMenu(c.color);
  menu->findChild<QAction*>("mergeSelection")->trigger();
  ASSERT_NE(c.group(), nullptr);
  EXPECT_EQ(c.group()->group->nodes.size(), 2u) << "the whole selection it was opened on";
  EXPECT_FALSE(editor.nodeMenu(c.output)->findChild<QAction*>("mergeSelection")->isEnabled()) << "the output stays out";
  editor.nodeMenu(c.group()->id)->findChild<QAction*>("openGroup")->trigger();
  EXPECT_EQ(c.model._openGroups.size(), 1u);
  editor.nodeMenu(c.color)->findChild<QAction*>("closeGroup")->trigger();
  EXPECT_TRUE(c.model._openGroups.empty());
}

TEST(GroupEditing, TheGroupPanelRenamesAndChoosesTheSettingsShown) {
  Chain c;
  const Uuid id = *c.model.mergeSelection("Groupe");
  InspectorWidget inspector(c.model);
  inspector.show();
  inspector.refresh();
  GroupSettings* panel = inspector.groupSettings();
  ASSERT_TRUE(panel->isVisible());

  auto* name = panel->findChild<QLineEdit*>("groupName");
  EXPECT_EQ(name->text(), "Groupe");
  name->setFocus();
  name->selectAll();
  QTest::keyClicks(name, "Douceur");
  QTest::keyClick(name, Qt::Key_Return);
  EXPECT_EQ(c.model.nodeByID(id)->title(), "Douceur");

  // A setting of the inner blur, chosen from the menu, becomes the group's first row.
  const ParamSpec& size = (*NodeKind::find("blur"))->params.front();
  auto menu = panel->addMenu();
  auto* inner = menu->findChild<QMenu*>(QString::fromStdString("inner:" + c.blur.toString()));
  ASSERT_NE(inner, nullptr);
  inner->findChild<QAction*>(QString::fromStdString(size.key))->trigger();
  ASSERT_EQ(c.model.nodeByID(id)->group->controls.size(), 1u);
  inspector.refresh();
  ASSERT_NE(inspector.row("c0"), nullptr);
  EXPECT_EQ(inspector.row("c0")->spec().max, size.max) << "the inner setting's range";
  EXPECT_FALSE(panel->addMenu()->findChild<QAction*>(QString::fromStdString(size.key))->isEnabled()) << "shown once";

  panel->findChild<QToolButton*>("removeGroupControl:0")->click();
  EXPECT_TRUE(c.model.nodeByID(id)->group->controls.empty());
  inspector.refresh();
  EXPECT_EQ(inspector.row("c0"), nullptr);

  panel->findChild<QPushButton*>("openGroup")->click();
  EXPECT_EQ(c.model._openGroups.size(), 1u);
  inspector.refresh();
  EXPECT_FALSE(panel->isVisible()) << "no group inspected now";
}
