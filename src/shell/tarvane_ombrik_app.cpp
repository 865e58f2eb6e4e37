#include "shell/tarvane_ombrik_app.h"

#include <QApplication>
#include <QProcess>

#include "document/app_model.h"
#include "platform/app_paths.h"
#include "platform/string_catalogue.h"
#include "shell/dark_theme.h"
#include "shell/main_window.h"
#include "shell/qt_dialogs.h"
#include "shell/qt_translations.h"

namespace ombrik {

int TarvaneOmbrikApp::run(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setOrganizationName("Tarvane");
  QApplication::setApplicationName("Ombrik");
  applyDarkTheme(app);
  // The language was chosen before the application existed (OmbrikMain); Qt's dialogs follow it.
  useQtTranslations(interfaceLanguage());
  AppPaths::shared().prepare();

  auto dialogs = std::make_shared<QtDialogs>();
  AppModel::Options options = AppModel::processOptions();
  options.openLastProject = true;
  options.dialogs = dialogs;
  options.relaunch = [] {
    QProcess::startDetached(QApplication::applicationFilePath(), QApplication::arguments().mid(1));
    QApplication::quit();
  };
  AppModel model(options);
  MainWindow window(model);
  dialogs->setParent(&window);
  // The save of quitting is the window's (MainWindow::closeEvent): it can still ask if it fails.
  // Media that went missing may be back each time the artist returns to the program.
  QObject::connect(&app, &QGuiApplication::applicationStateChanged, [&model](Qt::ApplicationState state) {
    if (state == Qt::ApplicationActive) model.relinkMissingMedia();
  });
  model.startInbox();
  window.show();
  return app.exec();
}

}  // namespace ombrik
