#pragma once
#include <map>
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"
#include "graph/point.h"
#include "graph/uuid.h"

namespace ombrik {

// A whole graph state: one undo step.
struct GraphSnapshot {
  std::vector<Node> nodes;
  std::vector<Edge> edges;
  std::map<Uuid, Point> positions;
  bool operator==(const GraphSnapshot&) const = default;
};

}  // namespace ombrik
