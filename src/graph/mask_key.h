#pragma once
#include "graph/point.h"

namespace ombrik {

// A mask placement: centre, radii (percent of the comp) and rotation in degrees.
struct MaskKey {
  double cx = 0;
  double cy = 0;
  double rx = 0;
  double ry = 0;
  double rot = 0;
  bool operator==(const MaskKey&) const = default;
};

// A Bézier point with its incoming and outgoing tangents.
struct SplinePoint {
  Point p;
  Point inT;
  Point outT;
  bool operator==(const SplinePoint&) const = default;
};

// A click of the AI mask tools: positive adds to the subject, negative removes.
struct MagicPoint {
  Point p;
  bool positive = true;
  bool operator==(const MagicPoint&) const = default;
};

}  // namespace ombrik
