// The "Mes nodes" menu over a real library: save twice, place, take a version back, remove.
#include "shell/user_node_menu.h"
#include "shell_app.h"

using namespace ombrik;

TEST(UserNodeMenu, SavesPlacesRevertsAndRemovesAGroup) {
  test::shellApp();
  test::ScriptedDesk desk(false);
  AppModel& m = *desk.m;
  QMenu menu;
  auto trigger = [&](const QString& name) {
    fillUserNodeMenu(menu, m);
    QAction* a = menu.findChild<QAction*>(name);
    if (!a) return false;
    a->trigger();
    return true;
  };
  fillUserNodeMenu(menu, m);
  EXPECT_FALSE(menu.findChild<QAction*>("saveGroup")->isEnabled());  // no group selected

  const Uuid a = m.addNode(*NodeKind::find("color"), {100, 100}), b = m.addNode(*NodeKind::find("blur"), {200, 100});
  m.connect(a, b, 0, 0);
  const auto group = m.collapse({a, b}, "Douceur", std::nullopt, {{b, "size", "Taille"}}, "", "");
  ASSERT_TRUE(group);
  m.setParams(*group, {{"c0", 5}});
  ASSERT_TRUE(trigger("saveGroup"));
  m.setParams(*group, {{"c0", 9}});
  ASSERT_TRUE(trigger("saveGroup"));
  ASSERT_EQ(m.userNodes.defs().size(), 1u);
  const UserNodeDef def = m.userNodes.defs()[0];
  EXPECT_EQ(def.name, "Douceur");
  EXPECT_EQ(def.version, 2);

  // Placed: a group node whose inner nodes are new, with the values of the version in use.
  const QString id = QString::fromStdString(def.id);
  ASSERT_TRUE(trigger("place:" + id));
  const Node placed = *m.nodeByID(*m._selected);  // a copy: placing again moves the nodes
  ASSERT_TRUE(placed.group);
  EXPECT_NE(placed.id, *group);
  EXPECT_FALSE(AppModel::innerNode(b, {placed}));
  EXPECT_DOUBLE_EQ(placed.params.at("c0"), 9);

  ASSERT_TRUE(trigger("version:" + id + ":1"));
  EXPECT_EQ(m.userNodes.defs()[0].version, 1);
  ASSERT_TRUE(trigger("place:" + id));
  EXPECT_DOUBLE_EQ(m.nodeByID(*m._selected)->params.at("c0"), 5);

  ASSERT_TRUE(trigger("remove:" + id));
  EXPECT_TRUE(m.userNodes.defs().empty());
  fillUserNodeMenu(menu, m);
  EXPECT_FALSE(menu.findChild<QAction*>("place:" + id));
  EXPECT_TRUE(m.nodeByID(placed.id));  // placed nodes stay
}
