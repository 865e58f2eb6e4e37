// The list of worlds: folders and worlds as the model has them, entering, renaming, its menu.
#include <QLineEdit>
#include <QTreeWidget>
#include <QUrl>
#include <fstream>

#include "color/lut_lib.h"
#include "document/world_list.h"
#include "document/world_pack.h"
#include "shell/worlds_panel.h"
#include "shell_app.h"

using namespace ombrik;

namespace {
// A model without an engine, its panels and alerts answered by a script, with four worlds:
// Plan_010 and Plan_020 in the folder "Scène 12", Plan_030 with a camera LUT, Plan_040 open. The
// blank start's world serves as the Node Creator's, which no list shows.
struct Desk : test::ScriptedDesk {
  QApplication& app = test::shellApp();
  std::vector<Uuid> worlds = [this] {
    std::vector<Uuid> ids;
    for (const char* name : {"Plan_010", "Plan_020", "Plan_030", "Plan_040"}) {
      m->newBatch(name);
      ids.push_back(*m->_currentBatchID);
    }
    m->groupWorlds({ids[0], ids[1]}, "Scène 12");
    m->_renameGroupRequest.reset();
    m->setWorldLUT(ids[2], "auto:slog3");
    m->_batches.front().creator = true;
    return ids;
  }();
  WorldsPanel panel{*m};
  QTreeWidget& tree = *panel.tree();

  Desk() : ScriptedDesk(false) {
    panel.show();
    panel.refresh();
  }
  const Batch& world(int i) const { return *worldlist::find(m->_batches, worlds[i]); }
  // The name field open in the list; one closed a moment ago is hidden until it goes.
  QLineEdit* nameField() const {
    for (auto* field : tree.viewport()->findChildren<QLineEdit*>())
      if (field->isVisible()) return field;
    return nullptr;
  }
  void select(std::initializer_list<Uuid> ids) {
    tree.clearSelection();
    for (const Uuid& id : ids) panel.itemOf(id)->setSelected(true);
  }
  // The right-click menu of the selection, its entries by name.
  QStringList entries() {
    const std::unique_ptr<QMenu> menu(panel.selectionMenu(nullptr));
    QStringList names;
    for (QAction* a : menu->actions())
      if (!a->isSeparator()) names << (a->menu() ? a->menu()->objectName() : a->objectName());
    return names;
  }
  bool pick(const QString& name) {
    const std::unique_ptr<QMenu> menu(panel.selectionMenu(nullptr));
    QAction* a = menu->findChild<QAction*>(name);
    if (a) a->trigger();
    return a != nullptr;
  }
};

// Each line as "depth:name:badge", bold lines marked with a star.
QStringList lines(const QTreeWidget& tree) {
  QStringList out;
  for (QTreeWidgetItemIterator it(const_cast<QTreeWidget*>(&tree)); *it; ++it)
    out << QString("%1:%2:%3%4").arg((*it)->parent() ? 1 : 0).arg((*it)->text(0), (*it)->text(1),
                                                                   (*it)->font(0).bold() ? "*" : "");
  return out;
}
}  // namespace

TEST(WorldsPanel, ListsFoldersAndWorldsFollowsTheModelAndOffersWhatFitsTheSelection) {
  Desk d;
  const QString slog = QString::fromStdString(*LUTLib::short_("auto:slog3"));
  EXPECT_EQ(lines(d.tree), (QStringList{"0:Scène 12:", "1:Plan_010:", "1:Plan_020:", "0:Plan_030:" + slog,
                                        "0:Plan_040:*"}))
      << "the Creator's world is listed nowhere";

  d.m->renameBatch(d.worlds[2], "Extérieur nuit");
  d.m->setWorldLUT(d.worlds[2], "");
  d.m->openBatch(d.worlds[0]);
  d.panel.refresh();
  EXPECT_EQ(lines(d.tree), (QStringList{"0:Scène 12:", "1:Plan_010:*", "1:Plan_020:", "0:Extérieur nuit:",
                                        "0:Plan_040:"}));

  // A double click enters a world and puts the graph in front.
  d.m->_worldView = true;
  QTreeWidgetItem* last = d.panel.itemOf(d.worlds[3]);
  const QPoint at = d.tree.visualItemRect(last).center();
  QTest::mouseClick(d.tree.viewport(), Qt::LeftButton, {}, at);
  QTest::mouseDClick(d.tree.viewport(), Qt::LeftButton, {}, at);
  EXPECT_EQ(d.m->_currentBatchID, d.worlds[3]);
  EXPECT_FALSE(d.m->_worldView);
  EXPECT_EQ(d.m->_worldSelection, std::set<Uuid>{d.worlds[3]}) << "the selection is the model's";

  // The right-click menu offers what fits the selection.
  const Uuid folder = d.m->_worldGroups.front().id;
  const struct {
    std::vector<Uuid> selected;
    QStringList entries;
  } cases[] = {
      {{}, {"newWorld"}},
      {{d.worlds[3]}, {"enterWorld", "renameWorld", "duplicateWorld", "worldLut", "packWorld", "deleteSelection"}},
      {{d.worlds[0]}, {"enterWorld", "renameWorld", "duplicateWorld", "worldLut", "packWorld", "leaveFolder", "deleteSelection"}},
      {{d.worlds[1], d.worlds[2]}, {"groupWorlds", "leaveFolder", "deleteSelection"}},
      {{folder}, {"renameFolder", "ungroup", "deleteFolder"}},
      {{folder, d.worlds[3]}, {"deleteSelection"}},
  };
  for (const auto& c : cases) {
    d.tree.clearSelection();
    for (const Uuid& id : c.selected) d.panel.itemOf(id)->setSelected(true);
    EXPECT_EQ(d.entries(), c.entries) << c.selected.size() << " selected";
  }
}

TEST(WorldsPanel, GroupsNamesUngroupsDeletesAndChoosesALutThroughItsMenu) {
  Desk d;
  d.select({d.worlds[2], d.worlds[3]});
  ASSERT_TRUE(d.pick("groupWorlds"));
  ASSERT_EQ(d.m->_worldGroups.size(), 2u);
  const Uuid made = d.m->_worldGroups.back().id;
  EXPECT_EQ(d.world(3).group, made);
  // The new folder's name field is open: what is typed names it.
  QLineEdit* field = d.nameField();
  ASSERT_NE(field, nullptr);
  field->setText("Extérieurs");
  QTest::keyClick(field, Qt::Key_Return);
  QCoreApplication::processEvents();
  EXPECT_EQ(d.panel.itemOf(made)->text(0), "Extérieurs");

  // A blank name changes nothing, and the line shows the name again.
  d.tree.editItem(d.panel.itemOf(made), 0);
  field = d.nameField();
  ASSERT_NE(field, nullptr);
  field->setText("   ");
  QTest::keyClick(field, Qt::Key_Return);
  QCoreApplication::processEvents();  // the field commits once its key is handled
  d.panel.refresh();
  EXPECT_EQ(d.panel.itemOf(made)->text(0), "Extérieurs");

  d.select({made});
  ASSERT_TRUE(d.pick("ungroup"));
  EXPECT_EQ(d.m->_worldGroups.size(), 1u);
  EXPECT_TRUE(d.m->_worldSelection.empty()) << "the folder undone leaves the selection";

  d.select({d.worlds[1]});
  ASSERT_TRUE(d.pick("leaveFolder"));
  EXPECT_FALSE(d.world(1).group);

  // Deletion asks first: "Annuler" keeps the worlds, "Supprimer" removes them.
  d.select({d.worlds[0], d.worlds[1]});
  d.dialogs->alertAnswers = {1, 0};
  ASSERT_TRUE(d.pick("deleteSelection"));
  EXPECT_EQ(d.m->_batches.size(), 5u);
  ASSERT_TRUE(d.pick("deleteSelection"));
  ASSERT_EQ(d.dialogs->alerts.size(), 2u);
  EXPECT_EQ(d.dialogs->alerts[1].title, "Supprimer 2 mondes ?");
  EXPECT_EQ(d.m->_batches.size(), 3u);

  // The world's LUT can be a chosen .cube file.
  const auto cube = d.dir.path / "grade.cube";
  std::ofstream(cube) << "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
  d.dialogs->panelAnswers = {cube};
  d.select({d.worlds[3]});
  ASSERT_TRUE(d.pick("chooseLutFile"));
  EXPECT_EQ(d.world(3).lut, cube.string());
  d.panel.refresh();
  EXPECT_EQ(d.panel.itemOf(d.worlds[3])->toolTip(1), "grade.cube");
}

TEST(WorldsPanel, TheWorldsMenuShowsThePanelAndPacksTheOpenWorld) {
  Desk d;
  MainWindow window(*d.m);
  window.show();
  QMenu* worlds = test::menuTitled(window, "Mondes");
  ASSERT_NE(worlds, nullptr);
  auto trigger = [&](const QString& text) { return test::triggerEntry(worlds, text); };
  EXPECT_FALSE(window.worldsPanel()->isVisible());
  ASSERT_TRUE(trigger("Liste des mondes"));
  EXPECT_TRUE(window.worldsPanel()->isVisible());
  EXPECT_EQ(window.worldsPanel()->tree()->topLevelItemCount(), 3);
  // F2 and Delete belong to the list while it has the focus, not to the viewer's window-wide keys.
  QTreeWidget* tree = window.worldsPanel()->tree();
  window.activateWindow();
  tree->setFocus();
  tree->setCurrentItem(window.worldsPanel()->itemOf(d.worlds[0]));
  QTest::keyClick(tree, Qt::Key_F2);
  QLineEdit* field = tree->viewport()->findChild<QLineEdit*>();
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(field->text(), "Plan_010");
  EXPECT_FALSE(d.m->_viewerFull) << "the viewer's F2 stayed put";
  QTest::keyClick(field, Qt::Key_Return);
  QCoreApplication::processEvents();
  QTest::keyClick(tree, Qt::Key_Delete);
  EXPECT_EQ(d.dialogs->alerts.size(), 1u) << "asked (and answered \"Annuler\")";

  d.dialogs->panelAnswers = {std::nullopt};  // the user gives up where to put the pack
  ASSERT_TRUE(trigger("Rassembler le monde (arbre + rushs)…"));
  ASSERT_EQ(d.dialogs->savePanels.size(), 1u);
  EXPECT_EQ(d.dialogs->savePanels[0].proposedName, "Plan_040 (Ombrik)");
  EXPECT_FALSE(d.m->packing());

  // A pack dropped on the window comes back as a world, and the list comes forward to show it.
  window.worldsPanel()->hide();
  d.m->_worldView = false;
  window.refresh();
  const std::filesystem::path pack = d.dir.path / "Plan_030 (Ombrik)";
  std::filesystem::create_directories(pack);
  std::ofstream(pack / "monde.ombrik") << worldpack::encode({{}, d.world(2)});
  EXPECT_TRUE(window.dropUrls({QUrl::fromLocalFile(QString::fromStdString(pack.string()))}));
  EXPECT_EQ(d.m->_batches.back().name, "Plan_030 (rassemblé)") << d.m->_status;
  EXPECT_TRUE(window.worldsPanel()->isVisible());
}
