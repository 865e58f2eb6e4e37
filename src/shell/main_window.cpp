#include "shell/main_window.h"

#include <QLabel>

#include "document/app_model.h"

namespace ombrik {

MainWindow::MainWindow(AppModel& model, QWidget* parent) : QMainWindow(parent), model_(model) {
  setWindowTitle("Ombrik");
  world_ = new QLabel(this);
  world_->setAlignment(Qt::AlignCenter);
  world_->setObjectName("worldName");
  setCentralWidget(world_);
  resize(1280, 800);
  refresh();
}

QString MainWindow::worldName() const {
  const Batch* world = model_.currentBatch();
  return world ? QString::fromStdString(world->name) : QString();
}

void MainWindow::refresh() { world_->setText(worldName()); }

}  // namespace ombrik
