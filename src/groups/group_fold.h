#pragma once
// Folding a piece of graph into a group node and unfolding it again, on a plain graph value:
// the document's operations (app_model_groups.cpp) call these and then notify.
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "graph/graph_snapshot.h"
#include "groups/node_group.h"

namespace ombrik {

struct FoldRequest {
  std::set<Uuid> ids;
  std::string name;
  std::optional<Uuid> keep;  // the id the group node takes (a group closed again keeps its own)
  std::vector<GroupControl> controls;
  std::string info, author;
};

struct Folded {
  std::optional<Uuid> id;  // none: refused, `refusal` says why
  std::string refusal;
  int count = 0;  // nodes taken in
};

// Moves the members into one group node wired where they were. Refused, with nothing changed,
// when a mask's separate output or more than one node leaves the selection.
Folded foldGroup(GraphSnapshot& graph, const FoldRequest& request);

struct Unfolded {
  std::vector<Uuid> inner;  // the group's nodes, now in the graph
  Uuid output;
  OpenGroup open;  // what remembers the group while it is open
};

// Puts a group node's inner graph back in its place, the control values written down into the
// inner nodes and the outside wires reconnected to the ports they fed. None for a plain node.
std::optional<Unfolded> unfoldGroup(GraphSnapshot& graph, const Uuid& id);

// The box an open group is drawn in and closes over: its members' positions grown by 80.
struct GroupFrame {
  double minX = 0, minY = 0, maxX = 0, maxY = 0;
  bool contains(Point p) const { return p.x >= minX && p.x <= maxX && p.y >= minY && p.y <= maxY; }
};
std::optional<GroupFrame> openGroupFrame(const GraphSnapshot& graph, const OpenGroup& open);

// Who an open group folds when it closes: the members still there, and every other node (but
// media and output) dropped inside its frame.
std::set<Uuid> closingMembers(const GraphSnapshot& graph, const OpenGroup& open);

const Node* findInnerNode(const Uuid& id, const std::vector<Node>& nodes);

}  // namespace ombrik
