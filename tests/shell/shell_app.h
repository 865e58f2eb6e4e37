#pragma once
// What the widget tests share: one QApplication for the whole program, and a way to answer the
// popup menus that widgets open with exec().
#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QTimer>

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

}  // namespace ombrik::test
