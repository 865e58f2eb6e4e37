#pragma once
// The tracking controls of a mask, beside the mask tools: track back, forward or both ways from
// this frame, stop, the engine and mode of the next run, the run's progress, and the pins and
// hand corrections around a track.
#include <QWidget>

class QAction;
class QLabel;
class QProgressBar;
class QToolButton;

namespace ombrik {

class AppModel;

class TrackButtons : public QWidget {
public:
  explicit TrackButtons(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // enables what can be done now, shows the progress of a run

private:
  AppModel& model_;
  QToolButton* back_ = nullptr;
  QToolButton* both_ = nullptr;
  QToolButton* forward_ = nullptr;
  QToolButton* stop_ = nullptr;
  QToolButton* engine_ = nullptr;
  QToolButton* keys_ = nullptr;  // pins and corrections
  QAction* correct_ = nullptr;
  QProgressBar* progress_ = nullptr;
};

}  // namespace ombrik
