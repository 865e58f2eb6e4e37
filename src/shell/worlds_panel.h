#pragma once
// The worlds of the project as a list docked beside the window: each folder with its worlds, then
// the worlds in no folder, the open one in bold with its LUT's badge. Until the world map exists
// it carries every world operation: a double click enters a world (or names a folder), F2 renames,
// and a right click offers what the map's menus offer for the selection.
#include <QDockWidget>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "graph/uuid.h"

class QMenu;
class QTreeWidget;
class QTreeWidgetItem;

namespace ombrik {

class AppModel;

class WorldsPanel : public QDockWidget {
public:
  explicit WorldsPanel(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // cheap when the worlds are as shown; nothing while hidden
  QTreeWidget* tree() const { return tree_; }
  QTreeWidgetItem* itemOf(const Uuid& id) const;
  // The right click's menu for the selection as it stands (the panel's own with none); the
  // caller owns it. Each entry names its action (objectName) for scripts and tests.
  QMenu* selectionMenu(QWidget* parent);

protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

private:
  // One line of the list, as the model has it.
  struct Row {
    Uuid id;
    bool folder = false;
    std::optional<Uuid> group;  // the folder a world is listed under
    std::string name;
    std::optional<std::string> lut;
    bool open = false;
    bool operator==(const Row&) const = default;
  };
  std::vector<Row> rowsNow() const;
  void showRows();
  void showSelection();
  void takeSelection();  // the tree's selection becomes the model's
  void renamed(QTreeWidgetItem* item, int column);
  void openRenameRequest();
  void worldMenu(QMenu* m, const std::vector<Uuid>& worlds, const std::vector<Uuid>& folders);

  AppModel& model_;
  QTreeWidget* tree_ = nullptr;
  std::vector<Row> shown_;
  std::set<Uuid> shownSelection_;
  std::set<Uuid> collapsed_;  // folders the user closed; the others stay open across refreshes
  bool shownOnce_ = false;
  bool filling_ = false;  // the tree's own changes while it is rebuilt aren't the user's
};

}  // namespace ombrik
