#pragma once
// The settings of a group node in the inspector: its name, the inner settings it shows (added
// from a menu of its inner nodes' settings, each removable), and buttons that open or dissolve
// it. The values of the settings shown are the group's own rows, under this panel.
#include <QWidget>
#include <memory>
#include <optional>
#include <vector>

#include "graph/uuid.h"
#include "groups/node_group.h"

class QLabel;
class QLineEdit;
class QMenu;
class QVBoxLayout;

namespace ombrik {

class AppModel;

class GroupSettings : public QWidget {
public:
  GroupSettings(AppModel& model, QWidget* parent = nullptr);
  // Shown for a group node only; rebuilt when its name or its list of settings changed.
  void refresh(const Node* node);
  // The menu the add button opens: one submenu per inner node, one entry per setting of it.
  std::unique_ptr<QMenu> addMenu();

private:
  void rebuildControls(const NodeGroup& group);
  void setControls(std::vector<GroupControl> controls);

  AppModel& model_;
  std::optional<Uuid> id_;
  std::vector<GroupControl> shownControls_;
  QLineEdit* name_ = nullptr;
  QLabel* empty_ = nullptr;
  QWidget* rows_ = nullptr;
  QVBoxLayout* rowsLayout_ = nullptr;
};

}  // namespace ombrik
