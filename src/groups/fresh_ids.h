#pragma once
// Copies of a group that share no inner id with their original.
#include "groups/node_group.h"

namespace ombrik {

// A copy of the group whose every node, at any depth, has a new id; its edges, positions,
// inputs, controls and output follow. Flattening lays the nodes of all groups side by side, so
// two copies of one group must not share an inner id.
NodeGroup fresh(const NodeGroup& group);

}  // namespace ombrik
