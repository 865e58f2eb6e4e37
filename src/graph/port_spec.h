#pragma once
#include <string>

namespace ombrik {

// An input port. `name` is an English identifier the engine also matches ("Back", "Depth").
struct PortSpec {
  std::string name;
  bool isMatte = false;

  // The text shown for the port, in the running language.
  std::string label() const;
  bool operator==(const PortSpec&) const = default;
};

}  // namespace ombrik
