#include "shell/tarvane_ombrik_app.h"

#include <QApplication>

#include "document/app_model.h"
#include "platform/app_paths.h"
#include "shell/main_window.h"

namespace ombrik {

int TarvaneOmbrikApp::run(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setOrganizationName("Tarvane");
  QApplication::setApplicationName("Ombrik");
  AppPaths::shared().prepare();

  AppModel model;
  MainWindow window(model);
  window.show();
  return app.exec();
}

}  // namespace ombrik
