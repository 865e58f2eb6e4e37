#pragma once
// The mask tools over the picture: the four tools, clearing the current shape, tracking, and how
// to use them. Shown only while the viewer edits a mask node.
#include <QWidget>
#include <array>

class QLabel;
class QToolButton;

namespace ombrik {

class AppModel;
class TrackButtons;

class RotoToolBar : public QWidget {
public:
  explicit RotoToolBar(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // shown with a mask node, the model's tool checked; touches widgets only on a change

private:
  AppModel& model_;
  std::array<QToolButton*, 4> tools_{};
  QToolButton* clear_ = nullptr;
  QLabel* hint_ = nullptr;
  TrackButtons* track_ = nullptr;
};

}  // namespace ombrik
