#pragma once
// The render queue in a window of its own, beside the main one: the queue's output folder, a row
// per world with its state and the file it wrote, and the buttons that empty or stop the queue.
// A job's row, double-clicked, shows its file in the file manager.
#include <QDialog>
#include <vector>

#include "editorial/render_queue.h"

class QPushButton;
class QTreeWidget;

namespace ombrik {

class AppModel;
class PathLabel;

class RenderQueuePanel : public QDialog {
public:
  explicit RenderQueuePanel(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // cheap when the queue is as shown
  QTreeWidget* jobs() const { return jobs_; }

private:
  void showJobs();

  AppModel& model_;
  PathLabel* folder_ = nullptr;
  QTreeWidget* jobs_ = nullptr;
  QPushButton* remove_ = nullptr;
  QPushButton* clear_ = nullptr;
  QPushButton* stop_ = nullptr;
  std::vector<RenderJob> shown_;
  bool shownOnce_ = false;
};

}  // namespace ombrik
