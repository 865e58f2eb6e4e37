#include "app/ombrik_main.h"

#include <iostream>
#include <string_view>
#include <vector>

#include "app/render_command.h"
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
  if (argc > 1 && std::string_view(argv[1]) == "render")  // headless, for scripts and render farms
    return RenderCommand::run(std::vector<std::string>(argv + 2, argv + argc), std::cerr);

  return TarvaneOmbrikApp::run(argc, argv);
}

}  // namespace ombrik
