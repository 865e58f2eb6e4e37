#pragma once
// Where a new node goes in the schematic: where it was asked for when that spot is free,
// otherwise the nearest spot where it covers no other node. Works on the room each node takes
// (its body and the name printed under it), so two names are never printed over each other.
#include <vector>

#include "graph/point.h"

namespace ombrik {

// How far a node reaches from its centre on each side, in graph units (all ≥ 0).
struct NodeRoom {
  double left = 0, top = 0, right = 0, bottom = 0;
};
struct NodeFootprint {
  Point centre;
  NodeRoom room;
};

constexpr double kNodeGap = 32;  // graph units left clear between two nodes: room for their wires

// The two footprints, each grown by half the gap, share some area (touching edges don't count).
bool footprintsOverlap(const NodeFootprint& a, const NodeFootprint& b, double gap = kNodeGap);

// The point nearest to `wanted` (ties: the lower, then the further right) where something of
// `room` overlaps none of `others`.
Point clearPlace(Point wanted, const NodeRoom& room, const std::vector<NodeFootprint>& others, double gap = kNodeGap);

}  // namespace ombrik
