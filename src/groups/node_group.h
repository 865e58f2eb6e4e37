#pragma once
// A group node's inner graph, and a group opened in place in its world.
#include <map>
#include <string>
#include <vector>

#include "graph/edge.h"
#include "graph/node.h"
#include "graph/point.h"
#include "graph/uuid.h"

namespace ombrik {

struct GroupTarget {
  Uuid node;
  int port = 0;
  bool operator==(const GroupTarget&) const = default;
};

// One outside input port of a group; it may feed several inner ports.
struct GroupInput {
  std::string name;
  bool isMatte = false;
  std::vector<GroupTarget> targets;
  bool operator==(const GroupInput&) const = default;
};

// An inner parameter shown on the group.
struct GroupControl {
  Uuid node;
  std::string key;
  std::string label;
  bool operator==(const GroupControl&) const = default;
};

struct NodeGroup {
  std::vector<Node> nodes;
  std::vector<Edge> edges;
  std::map<Uuid, Point> positions;
  std::vector<GroupInput> inputs;
  Uuid output;
  std::vector<GroupControl> controls;
  std::string info;
  std::string author;
  bool operator==(const NodeGroup&) const = default;
};

// The key of control i on the group node: "c0", "c1"…
inline std::string controlKey(std::size_t i) {
  std::string key = "c";  // appended, not concatenated: GCC 12 misreports "c" + string as overlapping
  key += std::to_string(i);
  return key;
}

// A group whose nodes are back in the graph, framed in the schematic.
struct OpenGroup {
  Uuid id;
  std::string name;
  std::vector<Uuid> members;
  std::vector<GroupControl> controls;
  std::string info;
  std::string author;
  bool operator==(const OpenGroup&) const = default;
};

}  // namespace ombrik
