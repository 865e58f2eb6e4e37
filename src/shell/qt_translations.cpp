#include "shell/qt_translations.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>
#include <memory>

namespace ombrik {

bool useQtTranslations(AppLanguage lang) {
  static std::unique_ptr<QTranslator> installed;
  if (installed) {
    QCoreApplication::removeTranslator(installed.get());
    installed.reset();
  }
  if (lang == AppLanguage::english) return true;
  auto translator = std::make_unique<QTranslator>();
  if (!translator->load("qtbase_" + QString::fromStdString(lang.code()), QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
    return false;
  QCoreApplication::installTranslator(translator.get());
  installed = std::move(translator);
  return true;
}

}  // namespace ombrik
