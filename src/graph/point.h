#pragma once

namespace ombrik {

// A point in whatever space its owner names (schematic, comp pixels, normalised comp).
struct Point {
  double x = 0;
  double y = 0;
  bool operator==(const Point&) const = default;
};

}  // namespace ombrik

namespace ombrik {

struct Size {
  double width = 0;
  double height = 0;
  bool operator==(const Size&) const = default;
};

}  // namespace ombrik
