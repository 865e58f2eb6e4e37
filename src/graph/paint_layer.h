#pragma once
#include <map>
#include <string>
#include <vector>

namespace ombrik {

// A layer of a paint-driven beauty node, as stored.
struct PaintLayer {
  std::map<std::string, double> params;
  std::vector<std::vector<double>> strokes;
  bool operator==(const PaintLayer&) const = default;
};

// The run-time form of a layer, filled on resolved copies only.
struct BeautyLayerRT {
  std::map<std::string, double> params;
  std::vector<float> dabs;   // 8 floats a dab
  std::vector<float> polys;  // polygon buffer as floats
  bool active = false;
  bool operator==(const BeautyLayerRT&) const = default;
};

}  // namespace ombrik
