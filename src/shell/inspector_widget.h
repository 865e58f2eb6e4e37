#pragma once
// The settings of one node: the node the panel is locked on, else the inspected node, else the
// selected one. Rows are built when that node changes and only re-read when its values or the
// time change. A mask node shows a tab per mask above its rows; the rows edit the active mask.
// The output and Relais nodes show their render section under the rows; the AI nodes their
// computations above them.
#include <QWidget>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "graph/keyframe.h"
#include "graph/node_kind.h"
#include "graph/uuid.h"

class QCheckBox;
class QLabel;
class QTabBar;
class QToolButton;
class QVBoxLayout;

namespace ombrik {

class AiPanel;
class AppModel;
class ParamRow;
class GroupSettings;
class RenderSection;
struct Node;

class InspectorWidget : public QWidget {
public:
  explicit InspectorWidget(AppModel& model, QWidget* parent = nullptr);
  void refresh();
  std::optional<Uuid> shownNode() const { return node_; }
  GroupSettings* groupSettings() const { return group_; }
  AiPanel* aiPanel() const { return ai_; }
  ParamRow* row(const std::string& key) const;  // nothing when the node has no such parameter

private:
  std::optional<Uuid> target() const;
  void rebuild();
  void refreshHeader(const Node* n);
  void refreshMaskTabs(const Node* n);

  AppModel& model_;
  std::optional<Uuid> node_;
  std::string kind_;
  // Held, so that its address can't be reused: a group's kind is remade when its settings change.
  KindRef kindShown_;
  QLabel* title_ = nullptr;
  QToolButton* lock_ = nullptr;  // shown while the panel is locked; a click releases it
  QCheckBox* bypass_ = nullptr;
  QLabel* info_ = nullptr;
  GroupSettings* group_ = nullptr;
  QWidget* maskBar_ = nullptr;
  QTabBar* maskTabs_ = nullptr;
  QWidget* rows_ = nullptr;
  QVBoxLayout* rowsLayout_ = nullptr;
  RenderSection* render_ = nullptr;
  AiPanel* ai_ = nullptr;
  std::vector<ParamRow*> rowList_;
  // What the rows show, so an unchanged node costs a comparison and no widget work.
  std::map<std::string, double> shownParams_;
  std::map<std::string, std::vector<Keyframe>> shownAnim_;
  int shownFrame_ = -1;
};

}  // namespace ombrik
