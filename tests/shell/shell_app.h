#pragma once
// What the widget tests share: one QApplication for the whole program, a way to answer the popup
// menus that widgets open with exec(), and a window on a model kept apart.
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QTest>
#include <QTimer>

#include "../document/temp_model.h"
#include "document/app_model.h"
#include "shell/main_window.h"

namespace ombrik::test {

inline QApplication& shellApp() {
  static int argc = 1;
  static char name[] = "shell_tests";
  static char* argv[] = {name, nullptr};
  static QApplication* app = qobject_cast<QApplication*>(QCoreApplication::instance());
  if (!app) app = new QApplication(argc, argv);
  return *app;
}

// The next popup menu to open triggers its action named `name` (submenus included) and closes.
// `found` tells afterwards whether the action was there.
inline void pickInNextMenu(const QString& name, bool* found) {
  *found = false;
  auto* poll = new QTimer;
  poll->setInterval(10);
  QObject::connect(poll, &QTimer::timeout, [poll, name, found, tries = 200]() mutable {
    auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    if (!menu && --tries > 0) return;  // not open yet
    poll->stop();
    poll->deleteLater();
    if (!menu) return;
    if (QAction* a = menu->findChild<QAction*>(name)) {
      *found = true;
      a->trigger();
    }
    menu->close();
  });
  poll->start();
}

// The window's menu shown as `title`, or null.
inline QMenu* menuTitled(MainWindow& window, const QString& title) {
  for (QAction* a : window.menuBar()->actions())
    if (a->text() == title) return a->menu();
  return nullptr;
}
// Opens `menu` as a click would and triggers its entry shown as `text`; the submenu of `sub` when given.
inline bool triggerEntry(QMenu* menu, const QString& text, QMenu** sub = nullptr) {
  emit menu->aboutToShow();
  for (QAction* a : menu->actions())
    if (a->text() == text) {
      if (sub) return (*sub = a->menu()) != nullptr;
      return a->trigger(), true;
    }
  return false;
}

// A model in a temporary folder, its panels and alerts answered by a script, and its window on
// screen: a blank world without a picture engine, a blank world with one, or the example world of
// a development tree (a picture, a correction, a shape mask).
struct WindowDesk {
  enum World { blank, blankWithEngine, example };
  QApplication& app = shellApp();
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::shared_ptr<ScriptedDialogs> dialogs = std::make_shared<ScriptedDialogs>();
  std::unique_ptr<AppModel> m;
  std::unique_ptr<MainWindow> window;

  explicit WindowDesk(World world = blank) {
    AppModel::Options options = tempModelOptions(dir, clock, world != blank);
    options.blankStart = world != example;
    options.dialogs = dialogs;
    m = std::make_unique<AppModel>(options);
    window = std::make_unique<MainWindow>(*m);
    window->setDialogs(dialogs);
    window->show();
    window->activateWindow();
    EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
  }
  // Runs what was asked and lets every widget catch up, as the window's timer would.
  void settle() {
    clock->runAll();
    window->refresh();
    QCoreApplication::processEvents();  // e.g. the tool bar's space taken from the viewer
    window->refresh();
  }
  template <typename T>
  T* find(const QString& name) const {
    T* w = window->findChild<T*>(name);
    EXPECT_NE(w, nullptr) << name.toStdString();
    return w;
  }
  void press(const QString& name) {
    if (auto* b = find<QAbstractButton>(name)) QTest::mouseClick(b, Qt::LeftButton);
    settle();
  }
  const Node* nodeOfKind(const std::string& kind) const {
    for (const Node& n : m->_nodes)
      if (n.kind->id == kind) return &n;
    return nullptr;
  }
};

}  // namespace ombrik::test
