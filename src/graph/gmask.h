#pragma once
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "graph/mask_key.h"

namespace ombrik {

// One mask of a mask node; the active one lives in the Node's own fields.
struct GMask {
  std::map<std::string, double> params;
  std::map<int, MaskKey> track;
  std::map<int, MaskKey> pins;
  std::map<int, std::vector<double>> trackOff;
  std::optional<int> trackRef;
  std::map<int, std::vector<double>> planarH;
  std::vector<SplinePoint> shape;
  bool shapeClosed = false;
  std::optional<MaskKey> shapeBase;
  bool ellipse = false;
  bool operator==(const GMask&) const = default;
};

}  // namespace ombrik
