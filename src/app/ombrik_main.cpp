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
  // The language comes first, so everything after it already speaks the chosen one. A headless
  // render only reads it: it changes nothing in the user's settings.
  setInterfaceLanguage(AppLanguage::current());

  if (argc > 1 && std::string_view(argv[1]) == "render")  // headless, for scripts and render farms
    return RenderCommand::run(std::vector<std::string>(argv + 2, argv + argc), std::cerr);
  AppLanguage::apply();
  // Questions about the program are answered before any window is made: they need no display.
  for (int i = 1; i < argc; ++i) {
    const std::string_view a = argv[i];
    if (a == "--version" || a == "-v") {
      std::cout << "ombrik " << OMBRIK_VERSION << std::endl;
      return 0;
    }
    if (a == "--help" || a == "-h") {
      std::cout << tr("usage : ombrik [--selftest | --version | --help]\n"
                      "        ombrik render PROJET.tarvom [--world NOM] [--frames A-B] [--scale S] [--codec C] --out SORTIE\n"
                      "Sans argument, l'application s'ouvre. « ombrik render --help » détaille le rendu sans fenêtre.")
                << std::endl;
      return 0;
    }
  }
  for (int i = 1; i < argc; ++i)
    if (std::string_view(argv[i]) == "--selftest") return SelfTest::run();

  return TarvaneOmbrikApp::run(argc, argv);
}

}  // namespace ombrik
