#pragma once
// The menu bar: file, edit, view, worlds, timeline, the user's nodes, render, language and help. Every entry calls one model
// operation, or opens a panel of the window.
#include <QObject>
#include <functional>
#include <initializer_list>
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
  // What the window opens from its menus: the render queue's panel, the curve editor, the
  // timeline's settings.
  struct Panels {
    std::function<void()> showQueue;
    std::function<void()> toggleCurves;
    std::function<void()> timelineSettings;
  };
  MainMenus(QMainWindow& window, AppModel& model, ViewerWidget& viewer, Panels panels);
  void refresh();  // ticks the settings in force, greys what can't be done now

private:
  void fileMenu(QMainWindow& window);
  void editMenu(QMainWindow& window);
  void viewMenu(QMainWindow& window, ViewerWidget& viewer, std::function<void()> toggleCurves);
  void compareMenu(QMenu* view);
  void playSizeMenu(QMenu* view);
  void worldsMenu(QMainWindow& window);
  void timelineMenu(QMainWindow& window, std::function<void()> openSettings);
  void userNodesMenu(QMainWindow& window);
  void renderMenu(QMainWindow& window, std::function<void()> showQueue);
  void languageMenu(QMainWindow& window);
  void helpMenu(QMainWindow& window);
  template <typename T>
  std::vector<std::pair<T, QAction*>> choices(QMenu* menu, std::initializer_list<std::pair<T, const char*>> items,
                                              std::function<void(T)> pick);

  AppModel& model_;
  std::vector<std::pair<double, QAction*>> scales_;
  double shownScale_ = -1;
  QAction* compare_ = nullptr;
  std::vector<std::pair<int, QAction*>> styles_;
  std::vector<std::pair<int, QAction*>> playSizes_;
  QAction* renderWorld_ = nullptr;
  QAction* queueWorld_ = nullptr;
  QAction* stopRenders_ = nullptr;
  QAction* showLast_ = nullptr;
  std::vector<QAction*> timelineOnly_;  // greyed without a current timeline
  QAction* backToBatch_ = nullptr;
  std::vector<std::pair<int, QAction*>> languages_;  // by AppLanguage value
};

}  // namespace ombrik
