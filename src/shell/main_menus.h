#pragma once
// The menu bar: file, edit, view and language. Every entry calls one model operation.
#include <QObject>
#include <utility>
#include <vector>

class QAction;
class QMainWindow;

namespace ombrik {

class AppModel;
class ViewerWidget;

class MainMenus : public QObject {
public:
  MainMenus(QMainWindow& window, AppModel& model, ViewerWidget& viewer);
  void refresh();  // ticks the preview scale in force

private:
  void fileMenu(QMainWindow& window);
  void editMenu(QMainWindow& window);
  void viewMenu(QMainWindow& window, ViewerWidget& viewer);
  void languageMenu(QMainWindow& window);

  AppModel& model_;
  std::vector<std::pair<double, QAction*>> scales_;
  double shownScale_ = -1;
};

}  // namespace ombrik
