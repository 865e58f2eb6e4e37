#pragma once
// The curve of an animated parameter: keys joined by linear, held or cubic Bézier segments,
// constant outside its keys.
#include <utility>
#include <vector>

#include "graph/keyframe.h"

namespace ombrik {

struct KeyAnim {
  // Handle lengths (out of a, in of b) as fractions of the segment: each clamped to
  // [0.001, 1], then scaled down together so the two never cross.
  static std::pair<double, double> influences(const Keyframe& a, const Keyframe& b);
  // The value at a (possibly fractional) frame of the segment from a to b.
  static double segment(const Keyframe& a, const Keyframe& b, double f);
  // The value of a sorted key list at a frame; 0 for an empty list.
  static double value(const std::vector<Keyframe>& ks, double f);
};

}  // namespace ombrik
