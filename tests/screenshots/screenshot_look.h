#pragma once
// What every screenshot shares: its look, language, model options and clock (the Shot), the window
// shown at the screenshots' size, popups drawn where they open, and the folder the pictures go to.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <algorithm>
#include <cstdlib>
#include <string>

#include "../document/temp_model.h"
#include "../platform/temp_dir.h"
#include "../shell/shell_app.h"
#include "document/app_model.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/dark_theme.h"
#include "shell/main_window.h"
#include "shell/qt_translations.h"

namespace ombrik::test {

inline bool saveScreenshot(const QImage& shot, const std::string& name) {
  const char* support = std::getenv("OMBRIK_SUPPORT");
  const QDir folder(support ? QDir(QString::fromLocal8Bit(support)).absoluteFilePath("../screenshots")
                            : QDir::temp().absoluteFilePath("ombrik-screenshots"));
  return QDir().mkpath(folder.path()) && shot.save(folder.absoluteFilePath(QString::fromStdString(name)));
}

// A popup laid out and grabbed as it would open.
inline QImage grabbed(QWidget& popup) {
  popup.ensurePolished();
  popup.resize(popup.sizeHint());
  return popup.grab().toImage();
}

// A popup drawn into the window's picture with a thin frame, kept inside it as a window manager
// would; where it ended up.
inline QPoint paintPopup(QImage& shot, const QImage& popup, QPoint at) {
  at.setX(std::clamp(at.x(), 0, shot.width() - popup.width()));
  at.setY(std::clamp(at.y(), 0, shot.height() - popup.height()));
  QPainter p(&shot);
  p.drawImage(at, popup);
  p.setPen(QColor(0x55, 0x55, 0x5c));
  p.drawRect(QRect(at, popup.size()).adjusted(-1, -1, 0, 0));
  return at;
}

// A menu drawn at `at`, with `sub`, one of its submenus, open beside its entry; where the menu ended up.
inline QPoint paintMenu(QImage& shot, QMenu& menu, QPoint at, QMenu* sub = nullptr) {
  const QImage list = grabbed(menu);
  at = paintPopup(shot, list, at);
  if (sub) paintPopup(shot, grabbed(*sub), at + QPoint(list.width() - 4, menu.actionGeometry(sub->menuAction()).top() - 4));
  return at;
}

// One view being taken, in French and in English: its look and language, put back when it ends, a
// folder and a clock of its own, its pictures' names.
struct Shot {
  QApplication& app = shellApp();
  const QString oldStyle = app.style()->name();
  const QPalette oldPalette = app.palette();
  const AppLanguage oldLanguage = interfaceLanguage(), language;
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  bool engineAsked = false;

  explicit Shot(AppLanguage language) : language(language) {
    setInterfaceLanguage(language);
    useQtTranslations(language);
    applyDarkTheme(app);
  }
  ~Shot() {
    setInterfaceLanguage(oldLanguage);
    useQtTranslations(AppLanguage::english);  // the test process runs without Qt's translations
    app.setStyle(QStyleFactory::create(oldStyle));
    app.setPalette(oldPalette);
  }
  // The text a view must show in this shot's language.
  const char* say(const char* english, const char* french) const { return language == AppLanguage::english ? english : french; }

  // A blank world with the engine (or without), or the example world; `show` fails without an engine asked for.
  AppModel::Options blank(bool withEngine = true) {
    engineAsked = withEngine;
    return tempModelOptions(dir, clock, withEngine);
  }
  AppModel::Options example() {
    AppModel::Options options = blank();
    options.blankStart = false;
    return options;
  }
  // A 25 fps H.264 clip of `frames` frames from an ffmpeg test source; empty when ffmpeg failed.
  std::filesystem::path clip(const char* name, const char* source, int frames) const {
    const std::filesystem::path out = dir.path / name;
    const std::string command = std::string("ffmpeg -v error -y -f lavfi -i ") + source + "=size=960x540:rate=25 -frames:v " +
                                std::to_string(frames) + " -c:v libx264 -pix_fmt yuv420p '" + out.string() + "'";
    return std::system(command.c_str()) == 0 ? out : std::filesystem::path();
  }

  void save(const QImage& picture, const std::string& stem) const {
    EXPECT_TRUE(saveScreenshot(picture, stem + (language == AppLanguage::english ? "_en.png" : "_fr.png"))) << stem;
  }
  // The window with `menu` (and its submenu `sub`) drawn open at `at`, in the window's coordinates.
  void saveWithMenu(MainWindow& window, const std::string& stem, QMenu& menu, QPoint at, QMenu* sub = nullptr) const {
    QImage picture = window.grab().toImage();
    paintMenu(picture, menu, at, sub);
    save(picture, stem);
  }
  // The window as it stands once settled; `snapOnce` only in the process's own language, its name without one.
  void snap(MainWindow& window, const std::string& stem) const {
    settle(window);
    save(window.grab().toImage(), stem);
  }
  void snapOnce(MainWindow& window, const std::string& stem) const {
    settle(window);
    if (language == oldLanguage) {
      EXPECT_TRUE(saveScreenshot(window.grab().toImage(), stem + ".png")) << stem;
    }
  }

  // Lets pending refreshes and layouts run.
  static void settle(MainWindow& window) {
    for (int i = 0; i < 3; ++i) {
      window.refresh();
      QCoreApplication::processEvents();
    }
  }
  // The window at the screenshots' size, on screen, after the clips' seeks and the renders the clock
  // holds (not with `advance` false: a render under way must stay where it is). False when it
  // couldn't be shown.
  bool show(MainWindow& window, const AppModel& model, bool advance = true) {
    if (engineAsked && !model.engine) {
      ADD_FAILURE() << "no engine: " << model._status;
      return false;
    }
    window.resize(1280, 800);
    window.show();
    if (!QTest::qWaitForWindowExposed(&window)) return false;
    if (advance) {
      settleSeeks(*clock, model);
      clock->advance(1.0);
    }
    settle(window);
    return true;
  }
};

// A node selected and shown in the settings panel.
inline void inspect(AppModel& model, const Uuid& id) {
  model.select(id);
  model.inspectedID = id;
}

// The first node of `kind` in the model's graph.
inline Uuid firstOfKind(const AppModel& model, const char* kind) {
  for (const Node& n : model._nodes)
    if (n.kind->id == kind) return n.id;
  ADD_FAILURE() << "no " << kind;
  return {};
}

}  // namespace ombrik::test
