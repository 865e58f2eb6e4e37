#pragma once
#include <QMainWindow>

class QLabel;

namespace ombrik {

class AppModel;

class MainWindow : public QMainWindow {
public:
  explicit MainWindow(AppModel& model, QWidget* parent = nullptr);
  void refresh();  // re-reads the model
  QString worldName() const;

private:
  AppModel& model_;
  QLabel* world_ = nullptr;
};

}  // namespace ombrik
