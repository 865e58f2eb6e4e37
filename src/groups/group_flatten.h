#pragma once
// Groups rewritten into plain nodes before evaluation: the engine never sees a group.
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"
#include "groups/node_group.h"

namespace ombrik {

struct FlatGraph {
  std::vector<Node> nodes;
  std::vector<Edge> edges;
};

// Each group node becomes a pass-through dot with the group's id (so wires leaving it still
// hold), fed by its inner output; wires into the group go to the inner ports they feed. Groups
// inside groups come out flat too. A bypassed group passes its first input and evaluates nothing
// inside. Inner ids are kept: copies of a group must carry fresh ones.
FlatGraph flattenGroups(const std::vector<Node>& nodes, const std::vector<Edge>& edges);
bool holdsGroups(const std::vector<Node>& nodes);

// The ids of a group's nodes in order, each followed by the ids inside it, at any depth.
std::vector<Uuid> allGroupIDs(const NodeGroup& group);

}  // namespace ombrik
