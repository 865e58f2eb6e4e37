#include "document/node_place.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace ombrik {

namespace {

constexpr double kSlack = 1e-7;  // rounding must not turn a spot on an edge into an overlap

struct Box {
  double left, top, right, bottom;
};

// The centres at which a node of `room` would overlap `other`: the other's box grown by the
// node's own reach and the gap. Open on its edges.
Box forbidden(const NodeFootprint& other, const NodeRoom& room, double gap) {
  return {other.centre.x - other.room.left - room.right - gap, other.centre.y - other.room.top - room.bottom - gap,
          other.centre.x + other.room.right + room.left + gap, other.centre.y + other.room.bottom + room.top + gap};
}

bool inside(const Box& b, Point p) {
  return p.x > b.left + kSlack && p.x < b.right - kSlack && p.y > b.top + kSlack && p.y < b.bottom - kSlack;
}

}  // namespace

bool footprintsOverlap(const NodeFootprint& a, const NodeFootprint& b, double gap) {
  return inside(forbidden(b, a.room, gap), a.centre);
}

Point clearPlace(Point wanted, const NodeRoom& room, const std::vector<NodeFootprint>& others, double gap) {
  std::vector<Box> boxes;
  boxes.reserve(others.size());
  for (const auto& o : others) boxes.push_back(forbidden(o, room, gap));
  auto free = [&](Point p) { return std::none_of(boxes.begin(), boxes.end(), [&](const Box& b) { return inside(b, p); }); };
  if (free(wanted)) return wanted;
  // The free area is what the boxes leave; its point nearest to `wanted` lies on the lines
  // through their edges, either straight across from `wanted` or where two such lines meet.
  std::vector<double> xs{wanted.x}, ys{wanted.y};
  for (const Box& b : boxes) {
    xs.insert(xs.end(), {b.left, b.right});
    ys.insert(ys.end(), {b.top, b.bottom});
  }
  std::optional<Point> best;
  double bestDistance = INFINITY;
  auto better = [&](Point p, double d) {
    if (d != bestDistance) return d < bestDistance;
    return p.y != best->y ? p.y > best->y : p.x > best->x;
  };
  for (double x : xs)
    for (double y : ys) {
      const Point p{x, y};
      const double d = std::hypot(x - wanted.x, y - wanted.y);
      if (d <= bestDistance && (!best || better(p, d)) && free(p)) {
        best = p;
        bestDistance = d;
      }
    }
  return best.value_or(wanted);  // the grid always holds a free point beyond every box
}

}  // namespace ombrik
