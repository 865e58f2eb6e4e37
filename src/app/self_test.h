#pragma once
#include <iosfwd>

namespace ombrik {

// A diagnostic of the installation, printed line by line; 0 when every check passed.
struct SelfTest {
  static int run(std::ostream& out);
  static int run();  // on standard output
};

}  // namespace ombrik
