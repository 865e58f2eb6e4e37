#include "graph/port_spec.h"

#include <string_view>
#include <utility>

#include "platform/string_catalogue.h"

namespace ombrik {

std::string PortSpec::label() const {
  // Port names are English identifiers; nine of them show a French text of their own,
  // which then goes through the catalogue like any other text.
  static constexpr std::pair<std::string_view, std::string_view> kShown[] = {
      {"Front", "Source"},
      {"Back", "Fond"},
      {"Depth", "Profondeur"},
      {"Matte", "Masque"},
      {"Matte 2", "Masque 2"},
      {"Matte 3", "Masque 3"},
      {"Matte 4", "Masque 4"},
      {"Position (Gmask / Tracker)", "Position (masque / tracker)"},
      {"Position (Gmask)", "Position (masque)"},
  };
  for (const auto& [portName, shown] : kShown)
    if (name == portName) return tr(shown);
  return name;
}

}  // namespace ombrik
