#pragma once
// The menu bar: file, edit, view, worlds and language. Every entry calls one model operation.
#include <QObject>
#include <utility>
#include <vector>

class QAction;
class QMainWindow;
class QMenu;

namespace ombrik {

class AppModel;
class ViewerWidget;

class MainMenus : public QObject {
public:
  MainMenus(QMainWindow& window, AppModel& model, ViewerWidget& viewer);
  void refresh();  // ticks the settings in force

private:
  void fileMenu(QMainWindow& window);
  void editMenu(QMainWindow& window);
  void viewMenu(QMainWindow& window, ViewerWidget& viewer);
  void compareMenu(QMenu* view);
  void playSizeMenu(QMenu* view);
  void worldsMenu(QMainWindow& window);
  void languageMenu(QMainWindow& window);

  AppModel& model_;
  std::vector<std::pair<double, QAction*>> scales_;
  double shownScale_ = -1;
  QAction* compare_ = nullptr;
  std::vector<QAction*> styles_;
  std::vector<std::pair<int, QAction*>> playSizes_;
};

}  // namespace ombrik
