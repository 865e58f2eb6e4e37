#pragma once
// What every screenshot test shares: the dark theme and a language (Qt's own texts in it) for one
// shot, put back as they were when it ends, even when an assertion ends the test early; and the
// folder beside the build's test data where a person can look at the pictures after a run.
#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>
#include <QTest>
#include <cstdlib>
#include <string>

#include "../shell/shell_app.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "shell/dark_theme.h"
#include "shell/qt_translations.h"

namespace ombrik::test {

struct ScreenshotLook {
  QApplication& app = shellApp();
  const QString oldStyle = app.style()->name();
  const QPalette oldPalette = app.palette();
  const AppLanguage oldLanguage = interfaceLanguage();
  explicit ScreenshotLook(AppLanguage language = interfaceLanguage()) {
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

inline bool saveScreenshot(const QImage& shot, const QString& name) {
  const char* support = std::getenv("OMBRIK_SUPPORT");
  const QDir folder(support ? QDir(QString::fromLocal8Bit(support)).absoluteFilePath("../screenshots")
                            : QDir::temp().absoluteFilePath("ombrik-screenshots"));
  return QDir().mkpath(folder.path()) && shot.save(folder.absoluteFilePath(name));
}
inline bool saveScreenshot(const QImage& shot, const std::string& name) {
  return saveScreenshot(shot, QString::fromStdString(name));
}
inline bool saveScreenshot(const QImage& shot, const char* name) { return saveScreenshot(shot, QString(name)); }

inline std::string languageSuffix(AppLanguage language) {
  return language == AppLanguage::english ? "_en.png" : "_fr.png";
}

// A main window at the screenshots' size, on screen, after the lean render and the full one
// with the nodes' pictures. False when the window couldn't be shown.
template <class Window>
bool showSettled(Window& window, ManualScheduler& clock) {
  window.resize(1280, 800);
  window.show();
  if (!QTest::qWaitForWindowExposed(&window)) return false;
  clock.advance(1.0);
  window.refresh();
  QCoreApplication::processEvents();
  return true;
}

}  // namespace ombrik::test
