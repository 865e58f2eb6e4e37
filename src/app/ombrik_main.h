#pragma once

namespace ombrik {

// The command-line dispatcher in front of the desktop application.
struct OmbrikMain {
  static int main(int argc, char** argv);
};

}  // namespace ombrik
