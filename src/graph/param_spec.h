#pragma once
#include <string>

#include "graph/localized.h"

namespace ombrik {

// One parameter of a kind. A toggle spans 0..1 with step 0.01; a non-empty `options` list makes
// the parameter a menu whose value is the option's index. A " px" unit is scaled with the preview.
struct ParamSpec {
  std::string key;
  Localized label;
  double min = 0;
  double max = 1;
  double def = 0;
  double step = 0.01;
  std::string unit;  // shown as it stands: " px", " %", "°"
  bool isToggle = false;
  LocalizedList options;

  bool isMenu() const { return !options.empty(); }
  bool operator==(const ParamSpec&) const = default;
};

}  // namespace ombrik
