#pragma once
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "graph/point.h"
#include "graph/uuid.h"

namespace ombrik {

// One tracker of a tracker node; positions are normalised to the comp.
struct TrackerPt {
  Uuid id;
  std::string name;
  Point p0;
  int ref = 0;
  bool on = true;
  std::map<int, Point> path;
  std::map<int, std::vector<double>> off;
  std::optional<int> weakAt;
  std::optional<Size> half;
  bool operator==(const TrackerPt&) const = default;
};

}  // namespace ombrik
