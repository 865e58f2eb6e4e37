#include "app/ombrik_main.h"

#include <string_view>

#include "app/self_test.h"
#include "platform/app_language.h"
#include "platform/string_catalogue.h"
#include "shell/tarvane_ombrik_app.h"

namespace ombrik {

int OmbrikMain::main(int argc, char** argv) {
  // The language comes first, so everything after it already speaks the chosen one.
  AppLanguage::apply();
  setInterfaceLanguage(AppLanguage::current());

  for (int i = 1; i < argc; ++i)
    if (std::string_view(argv[i]) == "--selftest") return SelfTest::run();

  return TarvaneOmbrikApp::run(argc, argv);
}

}  // namespace ombrik
