#pragma once
// The Tab panel of the node editor: a search field over the kinds, ↑↓ to choose, ↩ to add after
// the selected node or at the end of the wire left in empty space, Esc to close.
#include <QFrame>
#include <functional>
#include <vector>

#include "graph/node_kind.h"
#include "graph/uuid.h"

class QLabel;
class QLineEdit;
class QListWidget;

namespace ombrik {

class AppModel;

class QuickAddPanel : public QFrame {
public:
  QuickAddPanel(AppModel& model, QWidget* parent);
  void open(QPoint globalPos);  // an empty search, recent kinds first
  QLineEdit* field() const { return field_; }
  QListWidget* list() const { return list_; }
  const std::vector<KindRef>& results() const { return results_; }
  std::function<void(const Uuid&)> onAdded;  // told of each node the panel adds

protected:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void hideEvent(QHideEvent* event) override;

private:
  void search();
  void choose();

  AppModel& model_;
  QLineEdit* field_ = nullptr;
  QListWidget* list_ = nullptr;
  QLabel* footer_ = nullptr;
  std::vector<KindRef> results_;
  bool choosing_ = false;
};

}  // namespace ombrik
