// Screenshots of "Mes nodes" in each language: a code node and a saved group of the library found
// by the Tab search, the kinds menu with its "Mes nodes" submenu open, and the menu bar's "Mes nodes".
#include <gtest/gtest.h>

#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QTest>

#include "screenshot_look.h"
#include "../platform/temp_dir.h"
#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/kind_menu.h"
#include "shell/main_window.h"
#include "shell/node_editor.h"
#include "shell/quick_add_panel.h"

using namespace ombrik;

namespace {

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
  menu.ensurePolished();
  menu.resize(menu.sizeHint());
  sub.ensurePolished();
  sub.resize(sub.sizeHint());
  const QImage list = menu.grab().toImage(), open = sub.grab().toImage();
  const int top = menu.actionGeometry(sub.menuAction()).top();
  QImage shot(list.width() + open.width() + 8, std::max(list.height(), top + open.height()), QImage::Format_RGB32);
  shot.fill(QColor(0x1e, 0x1e, 0x22));
  QPainter p(&shot);
  p.drawImage(0, 0, list);
  p.drawImage(list.width() + 4, top, open);
  return shot;
}

void screenshotsOfMyNodes(AppLanguage language) {
  test::ScreenshotLook look(language);
  TempDir dir;
  libraryOf(dir.path / "Nodes");
  auto clock = std::make_shared<ManualScheduler>();
  AppModel model(AppModel::Options{.scheduler = clock, .defaultsFile = (dir.path / "defaults.conf").string(),
                                   .dataDir = dir.path / "data", .userNodesDir = dir.path / "Nodes"});
  ASSERT_EQ(model.userNodes.defs().size(), 2u) << model._status;
  MainWindow window(model);
  ASSERT_TRUE(test::showSettled(window, *clock));
  NodeEditor* editor = window.nodeEditor();
  const bool english = language == AppLanguage::english;

  editor->setFocus();
  QTest::keyClick(editor, Qt::Key_Tab);
  QuickAddPanel* panel = editor->quickAddPanel();
  ASSERT_TRUE(panel && panel->isVisible());
  QTest::keyClicks(panel->field(), english ? "my nodes" : "mes nodes");
  ASSERT_EQ(panel->results().size(), 2u);
  QCoreApplication::processEvents();
  // The panel is a window of its own: drawn into the window's picture where it stands.
  QImage searched = window.grab().toImage();
  {
    QPainter p(&searched);
    p.drawImage(window.mapFromGlobal(panel->mapToGlobal(QPoint(0, 0))), panel->grab().toImage());
  }
  EXPECT_TRUE(test::saveScreenshot(searched, "user_nodes_search" + test::languageSuffix(language)));
  QTest::keyClick(panel->field(), Qt::Key_Escape);

  QMenu menu;
  fillKindMenu(menu, [](const KindRef&) {}, model.userNodes.kinds());
  QMenu* mine = menu.findChild<QMenu*>("category:Mes nodes");
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(mine->menuAction()->iconText(), english ? "My nodes" : "Mes nodes");
  ASSERT_NE(mine->findChild<QAction*>("kind:usergroup.look0001"), nullptr);
  EXPECT_TRUE(test::saveScreenshot(withSubmenu(menu, *mine), "user_nodes_menu" + test::languageSuffix(language)));

  // The menu bar's own "Mes nodes", with a saved group's entries open.
  QMenu* bar = window.findChild<QMenu*>("userNodesMenu");
  ASSERT_NE(bar, nullptr);
  emit bar->aboutToShow();
  QMenu* group = nullptr;
  for (QAction* a : bar->actions())
    if (a->menu() && a->menu()->findChild<QAction*>("place:usergroup.look0001")) group = a->menu();
  ASSERT_NE(group, nullptr);
  EXPECT_TRUE(test::saveScreenshot(withSubmenu(*bar, *group), "user_nodes_bar_menu" + test::languageSuffix(language)));
}

}  // namespace

TEST(UserNodeScreens, MyNodesInFrench) { screenshotsOfMyNodes(AppLanguage::french); }

TEST(UserNodeScreens, MyNodesInEnglish) { screenshotsOfMyNodes(AppLanguage::english); }
