#pragma once
// A folder of worlds on the world map.
#include <optional>
#include <string>
#include <vector>

#include "graph/uuid.h"

namespace ombrik {

struct WorldGroup {
  Uuid id;
  std::string name;
  // x then y; fewer than two numbers count as no place, so the folder takes a grid cell.
  std::optional<std::vector<double>> pos;
  bool operator==(const WorldGroup&) const = default;
};

}  // namespace ombrik
