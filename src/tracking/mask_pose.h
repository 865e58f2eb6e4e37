#pragma once
// The placement of a mask at a frame and the shape moved with it. Shapes are stored in the space
// of the placement they were drawn in (`shapeBase`) and follow the mask's current placement.
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"

namespace ombrik {

// The placement read from a node's parameters: cx, cy, rx, ry 50, 50, 20, 20 and rot 0 when absent.
MaskKey maskKeyOf(const Node& node);

// The shape of `node` (anchors and tangent tips) moved from its base placement to `key`; the node
// unchanged when it has no base or the two placements are equal. `trackNow` becomes `key`.
Node placeShape(Node node, const MaskKey& key, double W, double H);

// The wires left after mask `index` of `nodeID` goes: those from its own port removed, the ports
// of later masks moved down by one.
std::vector<Edge> edgesAfterMaskRemoved(std::vector<Edge> edges, const Uuid& nodeID, int index);

// A point made smooth or a corner: tangents cleared when it has any, else a sixth of the chord
// between its neighbours (wrapping on a closed shape, the point itself at an open end).
void toggleSmooth(std::vector<SplinePoint>& shape, bool closed, int index);

}  // namespace ombrik
