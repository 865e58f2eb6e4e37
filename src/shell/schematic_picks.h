#pragma once
// What the editor's less common gestures point at, free of any widget: the nodes a marquee
// holds, the wire under the pointer (and the point of it nearest), and for an armed input the
// node near the pointer, the input it offers first and the output brought close to it.
#include <optional>
#include <vector>

#include "shell/schematic_geometry.h"

namespace ombrik::schematic {

// The nodes whose centre lies in the rectangle with corners a and b (either order), in node order.
std::vector<Uuid> nodesInRect(const std::vector<Node>& nodes, const Positions& positions, Point a, Point b);

struct WireHit {
  Uuid edge;
  Point point;  // the drawn curve's point nearest to where the pointer is
};
// The wire nearest to `g` among those within `reach`, by the hit-test distance.
std::optional<WireHit> wireAt(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                              const Positions& positions, Point g, double reach);

constexpr double kArmReach = 30;   // beyond a node's disc, where an input can still be armed
constexpr double kArmedReach = 40; // between an armed input and an output that will take it

// The node nearest to `g` whose disc, grown by kArmReach, holds it and that has inputs.
const Node* armableNodeAt(const std::vector<Node>& nodes, const Positions& positions, Point g);
// The input armed first on a node: its first free one, else the first.
int firstArmedInput(const Node& node, const std::vector<Edge>& edges);

// The output brought within kArmedReach of the armed input: of `dragged` when it isn't the armed
// node, else of any other node. The nearest wins.
std::optional<PortHit> armedSource(const std::vector<Node>& nodes, const Positions& positions, const PortHit& armed,
                                   const Uuid& dragged);

}  // namespace ombrik::schematic
