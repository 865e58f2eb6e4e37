#include "shell/worlds_panel.h"

#include <QHeaderView>
#include <QKeyEvent>
#include <QMenu>
#include <QSignalBlocker>
#include <QStyle>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <filesystem>
#include <functional>
#include <memory>

#include "color/lut_lib.h"
#include "document/app_model.h"
#include "document/world_list.h"
#include "shell/shown_text.h"
#include "shell/world_lut_menu.h"

namespace ombrik {

namespace {
constexpr int kIdRole = Qt::UserRole;
constexpr int kFolderRole = Qt::UserRole + 1;

Uuid idOf(const QTreeWidgetItem* item) { return Uuid::parse(item->data(0, kIdRole).toString().toStdString()).value_or(Uuid()); }
bool isFolder(const QTreeWidgetItem* item) { return item->data(0, kFolderRole).toBool(); }

// The badge's tooltip: the camera curve's full name, or the .cube file's name.
QString lutTip(const std::string& key) {
  if (key.rfind(LUTLib::kAutoPrefix, 0) == 0) {
    const std::string id = key.substr(LUTLib::kAutoPrefix.size());
    for (const auto& g : LUTLib::generics())
      if (g.id == id) return qs(g.label);
  }
  return qs(std::filesystem::path(key).filename().string());
}

// The tree, able to tell whether a name field is open in it.
class WorldTree : public QTreeWidget {
public:
  using QTreeWidget::QTreeWidget;
  bool editing() const { return state() == EditingState; }
};
bool editing(const QTreeWidget* tree) { return static_cast<const WorldTree*>(tree)->editing(); }

bool isEditKey(const QKeyEvent* k) {
  if (k->modifiers() & ~Qt::KeypadModifier) return false;
  return k->key() == Qt::Key_F2 || k->key() == Qt::Key_Delete || k->key() == Qt::Key_Backspace;
}
}  // namespace

WorldsPanel::WorldsPanel(AppModel& model, QWidget* parent) : QDockWidget(shown("Mondes"), parent), model_(model) {
  setObjectName("worldsPanel");
  toggleViewAction()->setText(shown("Liste des mondes"));
  tree_ = new WorldTree(this);
  tree_->setObjectName("worldTree");
  tree_->setColumnCount(2);
  tree_->setHeaderHidden(true);
  tree_->header()->setStretchLastSection(false);
  tree_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  tree_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
  tree_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  // Renaming is asked for (F2, a double click on a folder, the menu); a plain click only selects.
  tree_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  tree_->setExpandsOnDoubleClick(false);
  tree_->setContextMenuPolicy(Qt::CustomContextMenu);
  tree_->setMinimumWidth(180);
  tree_->installEventFilter(this);
  setWidget(tree_);

  connect(tree_, &QTreeWidget::itemSelectionChanged, this, [this] {
    if (!filling_) takeSelection();
  });
  connect(tree_, &QTreeWidget::itemChanged, this, [this](QTreeWidgetItem* item, int column) { renamed(item, column); });
  connect(tree_, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem* item) {
    if (isFolder(item)) {
      tree_->editItem(item, 0);
    } else {
      model_.enterWorld(idOf(item));
      refresh();
    }
  });
  connect(tree_, &QTreeWidget::itemCollapsed, this, [this](QTreeWidgetItem* item) {
    if (!filling_) collapsed_.insert(idOf(item));
  });
  connect(tree_, &QTreeWidget::itemExpanded, this, [this](QTreeWidgetItem* item) {
    if (!filling_) collapsed_.erase(idOf(item));
  });
  connect(tree_, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
    QTreeWidgetItem* item = tree_->itemAt(pos);
    if (!item) tree_->clearSelection();
    else if (!item->isSelected()) tree_->setCurrentItem(item);  // a line outside the selection is taken alone
    const std::unique_ptr<QMenu> menu(selectionMenu(this));
    menu->exec(tree_->viewport()->mapToGlobal(pos));
  });
  connect(this, &QDockWidget::visibilityChanged, this, [this](bool visible) {
    if (visible) refresh();
  });
  refresh();
}

bool WorldsPanel::eventFilter(QObject* watched, QEvent* event) {
  // The list keeps F2 and the deletion keys while it has the focus: the viewer's window-wide keys
  // would otherwise take them.
  if (watched != tree_ || (event->type() != QEvent::ShortcutOverride && event->type() != QEvent::KeyPress))
    return QDockWidget::eventFilter(watched, event);
  auto* key = static_cast<QKeyEvent*>(event);
  if (!isEditKey(key) || editing(tree_)) return QDockWidget::eventFilter(watched, event);
  event->accept();
  if (event->type() == QEvent::KeyPress) {
    if (key->key() == Qt::Key_F2) {
      if (QTreeWidgetItem* item = tree_->currentItem()) tree_->editItem(item, 0);
    } else if (!model_._worldSelection.empty()) {
      model_.deleteWorlds({model_._worldSelection.begin(), model_._worldSelection.end()}, true);
      refresh();
    }
  }
  return true;
}

std::vector<WorldsPanel::Row> WorldsPanel::rowsNow() const {
  // The Creator's scratch world and a world that never held work are listed nowhere.
  auto listed = [](const Batch& b) { return !b.placeholder && !b.creator; };
  const Batch* open = model_.currentBatch();
  auto rowOf = [&](const Batch& b, std::optional<Uuid> group) {
    return Row{b.id, false, group, b.name, b.lut, open && open->id == b.id};
  };
  std::vector<Row> rows;
  for (const WorldGroup& g : model_._worldGroups) {
    rows.push_back(Row{g.id, true, std::nullopt, g.name, std::nullopt, false});
    for (const Batch& b : model_._batches)
      if (listed(b) && b.group == g.id) rows.push_back(rowOf(b, g.id));
  }
  // A world whose folder is gone stands at the top level, as it does on the map.
  for (const Batch& b : model_._batches)
    if (listed(b) && (!b.group || !worldlist::findGroup(model_._worldGroups, *b.group))) rows.push_back(rowOf(b, std::nullopt));
  return rows;
}

void WorldsPanel::refresh() {
  if (!isVisible() && shownOnce_) return;
  if (editing(tree_)) return;  // a rebuild would close the name field
  std::vector<Row> rows = rowsNow();
  if (!shownOnce_ || rows != shown_) {
    shown_ = std::move(rows);
    shownOnce_ = true;
    showRows();
    showSelection();
  } else if (model_._worldSelection != shownSelection_) {
    showSelection();
  }
  openRenameRequest();
}

void WorldsPanel::showRows() {
  filling_ = true;
  const QSignalBlocker quiet(tree_);
  tree_->clear();
  const QColor badge = palette().color(QPalette::Disabled, QPalette::Text);
  QTreeWidgetItem* folder = nullptr;
  for (const Row& row : shown_) {
    auto* item = row.group && folder ? new QTreeWidgetItem(folder) : new QTreeWidgetItem(tree_);
    item->setText(0, qs(row.name));
    item->setData(0, kIdRole, qs(row.id.toString()));
    item->setData(0, kFolderRole, row.folder);
    item->setFlags(item->flags() | Qt::ItemIsEditable);
    if (row.folder) {
      item->setIcon(0, style()->standardIcon(QStyle::SP_DirIcon));
      folder = item;
    }
    if (row.open) {
      QFont bold = item->font(0);
      bold.setBold(true);
      item->setFont(0, bold);
    }
    if (const auto label = LUTLib::short_(row.lut)) {
      item->setText(1, qs(*label));
      item->setForeground(1, badge);
      item->setToolTip(1, lutTip(*row.lut));
    }
  }
  // Folders stay open unless the user closed them.
  for (int i = 0; i < tree_->topLevelItemCount(); ++i) {
    QTreeWidgetItem* item = tree_->topLevelItem(i);
    if (isFolder(item)) item->setExpanded(!collapsed_.contains(idOf(item)));
  }
  filling_ = false;
}

QTreeWidgetItem* WorldsPanel::itemOf(const Uuid& id) const {
  const QString text = qs(id.toString());
  for (QTreeWidgetItemIterator it(tree_); *it; ++it)
    if ((*it)->data(0, kIdRole).toString() == text) return *it;
  return nullptr;
}

void WorldsPanel::showSelection() {
  filling_ = true;
  {
    const QSignalBlocker quiet(tree_);
    tree_->clearSelection();
    for (const Uuid& id : model_._worldSelection)
      if (QTreeWidgetItem* item = itemOf(id)) item->setSelected(true);
  }
  filling_ = false;
  // What is no longer listed (deleted worlds, a folder undone) leaves the selection.
  takeSelection();
}

void WorldsPanel::takeSelection() {
  std::set<Uuid> selected;
  for (const QTreeWidgetItem* item : tree_->selectedItems()) selected.insert(idOf(item));
  if (selected != model_._worldSelection) model_._worldSelection = selected;
  shownSelection_ = std::move(selected);
}

void WorldsPanel::renamed(QTreeWidgetItem* item, int column) {
  if (filling_ || column != 0) return;
  const std::string name = item->text(0).toStdString();
  if (isFolder(item)) model_.renameWorldGroup(idOf(item), name);
  else model_.renameBatch(idOf(item), name);
  // Shown again from the model once the name field has closed: a blank name puts the old one back.
  shownOnce_ = false;
  QMetaObject::invokeMethod(this, [this] { refresh(); }, Qt::QueuedConnection);
}

void WorldsPanel::openRenameRequest() {
  // A new folder opens its name field, as it does on the map.
  if (!model_._renameGroupRequest || !isVisible()) return;
  QTreeWidgetItem* item = itemOf(*model_._renameGroupRequest);
  if (!item) return;
  model_._renameGroupRequest.reset();
  tree_->scrollToItem(item);
  tree_->setCurrentItem(item);
  tree_->editItem(item, 0);
}

QMenu* WorldsPanel::selectionMenu(QWidget* parent) {
  auto* m = new QMenu(parent);
  std::vector<Uuid> worlds, folders;
  for (QTreeWidgetItemIterator it(tree_, QTreeWidgetItemIterator::Selected); *it; ++it)
    (isFolder(*it) ? folders : worlds).push_back(idOf(*it));
  if (worlds.empty() && folders.empty()) {
    QAction* a = m->addAction(shown("Nouveau monde"));
    a->setObjectName("newWorld");
    connect(a, &QAction::triggered, this, [this] {
      model_.newBatch();
      refresh();
    });
    return m;
  }
  worldMenu(m, worlds, folders);
  return m;
}

void WorldsPanel::worldMenu(QMenu* m, const std::vector<Uuid>& worlds, const std::vector<Uuid>& folders) {
  // Each entry does its work, then the list shows the result at once.
  auto add = [this, m](const QString& text, const char* name, std::function<void()> work) {
    QAction* a = m->addAction(menuText(text));
    a->setObjectName(name);
    connect(a, &QAction::triggered, this, [this, work] {
      work();
      refresh();
    });
  };
  auto rename = [this](const Uuid& id) {
    return [this, id] {
      if (QTreeWidgetItem* item = itemOf(id)) tree_->editItem(item, 0);
    };
  };
  std::vector<Uuid> all = folders;
  all.insert(all.end(), worlds.begin(), worlds.end());
  auto deleteAll = [this, all] { model_.deleteWorlds(all, true); };

  if (folders.size() == 1 && worlds.empty()) {
    const Uuid id = folders.front();
    add(shown("Renommer"), "renameFolder", rename(id));
    add(shown("Défaire le dossier"), "ungroup", [this, id] { model_.ungroup(id); });
    m->addSeparator();
    add(shown("Supprimer le dossier et ses plans…"), "deleteFolder", deleteAll);
    return;
  }
  const Batch* one = worlds.size() == 1 && folders.empty() ? worldlist::find(model_._batches, worlds.front()) : nullptr;
  if (one) {
    const Uuid id = one->id;
    add(shown("Entrer dans le rush"), "enterWorld", [this, id] { model_.enterWorld(id); });
    add(shown("Renommer"), "renameWorld", rename(id));
    add(shown("Dupliquer le monde"), "duplicateWorld", [this, id] { model_.duplicateBatch(id); });
    QMenu* lut = m->addMenu(shown("LUT du monde"));
    lut->setObjectName("worldLut");
    fillWorldLutMenu(lut, model_, *one);
    add(shown("Rassembler le monde (arbre + rushs)…"), "packWorld", [this, id] { model_.packWorld(id); });
    m->addSeparator();
  }
  if (worlds.size() >= 2) {
    add(shown("Nouveau dossier avec " + std::to_string(worlds.size())), "groupWorlds",
        [this, worlds] { model_.groupWorlds(worlds, shown("Nouveau dossier").toStdString()); });
  }
  std::vector<Uuid> inFolder;
  for (const Uuid& id : worlds) {
    const Batch* b = worldlist::find(model_._batches, id);
    if (b && b->group && worldlist::findGroup(model_._worldGroups, *b->group)) inFolder.push_back(id);
  }
  if (!inFolder.empty())
    add(shown("Sortir du dossier"), "leaveFolder", [this, inFolder] { model_.moveWorlds(inFolder, std::nullopt); });
  if (!m->actions().isEmpty() && !m->actions().back()->isSeparator()) m->addSeparator();
  add(shown("Supprimer la sélection…"), "deleteSelection", deleteAll);
}

}  // namespace ombrik
