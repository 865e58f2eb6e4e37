#pragma once

namespace ombrik {

// The desktop application: creates the one AppModel and the main window, runs the event loop.
struct TarvaneOmbrikApp {
  static int run(int argc, char** argv);
};

}  // namespace ombrik
