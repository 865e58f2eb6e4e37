#pragma once
// What every screenshot shares: the dark theme and a language (Qt's own texts in it) for one view,
// put back as they were when it ends, even when an assertion ends it early; a model apart on the
// view's own clock; the window shown at the screenshots' size; popups drawn where they open; and the
// folder beside the build's test data where a person can look at the pictures after a run.
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

struct ScreenshotLook {
  QApplication& app = shellApp();
  const QString oldStyle = app.style()->name();
  const QPalette oldPalette = app.palette();
  const AppLanguage oldLanguage = interfaceLanguage();
  explicit ScreenshotLook(AppLanguage language) {
    setInterfaceLanguage(language);
    useQtTranslations(language);
    applyDarkTheme(app);
  }
  ~ScreenshotLook() {
    setInterfaceLanguage(oldLanguage);
    useQtTranslations(AppLanguage::english);  // the test process runs without Qt's translations
    app.setStyle(QStyleFactory::create(oldStyle));
    app.setPalette(oldPalette);
  }
};

inline bool saveScreenshot(const QImage& shot, const std::string& name) {
  const char* support = std::getenv("OMBRIK_SUPPORT");
  const QDir folder(support ? QDir(QString::fromLocal8Bit(support)).absoluteFilePath("../screenshots")
                            : QDir::temp().absoluteFilePath("ombrik-screenshots"));
  return QDir().mkpath(folder.path()) && shot.save(folder.absoluteFilePath(QString::fromStdString(name)));
}

// One view being taken: its look and language, a folder and a clock of its own, its pictures' names.
struct Shot {
  const AppLanguage language;
  const std::string suffix;  // "_fr.png", "_en.png", or ".png" for a view taken in one language only
  ScreenshotLook look{language};
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();

  Shot(AppLanguage language, bool bilingual)
      : language(language), suffix(!bilingual ? ".png" : language == AppLanguage::english ? "_en.png" : "_fr.png") {}
  bool english() const { return language == AppLanguage::english; }
  // The text a view must show in this shot's language.
  const char* say(const char* english, const char* french) const { return this->english() ? english : french; }

  // A blank world with the engine (or without), or the example world.
  AppModel::Options blank(bool withEngine = true) const { return tempModelOptions(dir, clock, withEngine); }
  AppModel::Options example() const {
    AppModel::Options options = blank();
    options.blankStart = false;
    return options;
  }

  void save(const QImage& picture, const std::string& stem) const {
    EXPECT_TRUE(saveScreenshot(picture, stem + suffix)) << stem;
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

// The first node of `kind` in the model's graph.
inline Uuid firstOfKind(const AppModel& model, const char* kind) {
  for (const Node& n : model._nodes)
    if (n.kind->id == kind) return n.id;
  ADD_FAILURE() << "no " << kind;
  return {};
}

}  // namespace ombrik::test
