#include "groups/group_flatten.h"

#include <deque>
#include <unordered_map>

namespace ombrik {

bool holdsGroups(const std::vector<Node>& nodes) {
  for (const auto& n : nodes)
    if (n.group) return true;
  return false;
}

namespace {

// The group's inner nodes with the values its controls show on the group node written in.
std::vector<Node> innerWithControls(const Node& groupNode) {
  const NodeGroup& g = *groupNode.group;
  std::vector<Node> inner = g.nodes;
  for (std::size_t i = 0; i < g.controls.size(); ++i) {
    const GroupControl& c = g.controls[i];
    auto value = groupNode.params.find(controlKey(i));
    if (value == groupNode.params.end()) continue;
    for (auto& n : inner)
      if (n.id == c.node) n.params[c.key] = value->second;
  }
  return inner;
}

struct Flattening {
  FlatGraph out;
  std::unordered_map<Uuid, const Node*> groups;  // every group met so far, at any depth
  std::deque<Node> held;                          // the group nodes those point at
};

// A wire into `to`; into a group, it goes on to the ports the group's input feeds, and further
// down when one of those is a group again.
void route(Flattening& f, const Uuid& id, const Uuid& from, int fromPort, const Uuid& to, int port) {
  auto it = f.groups.find(to);
  if (it == f.groups.end()) {
    f.out.edges.push_back(Edge{id, from, to, port, fromPort});
    return;
  }
  const Node& g = *it->second;
  if (g.bypass) {  // a bypassed group passes its first input, like any bypassed node
    if (port == 0) f.out.edges.push_back(Edge{id, from, to, 0, fromPort});
    return;
  }
  if (port < 0 || port >= int(g.group->inputs.size())) return;
  for (const GroupTarget& t : g.group->inputs[std::size_t(port)].targets)
    route(f, Uuid::generate(), from, fromPort, t.node, t.port);
}

void flattenInto(const std::vector<Node>& nodes, const std::vector<Edge>& edges, Flattening& f) {
  for (const auto& n : nodes) {
    if (!n.group) {
      f.out.nodes.push_back(n);
      continue;
    }
    const Node& g = f.held.emplace_back(n);
    f.groups[g.id] = &g;
    f.out.nodes.emplace_back(NodeKind::dot(), g.id);
    if (g.bypass) continue;
    flattenInto(innerWithControls(g), g.group->edges, f);
    f.out.edges.push_back(Edge{Uuid::generate(), g.group->output, g.id, 0, 0});
  }
  for (const auto& e : edges) route(f, e.id, e.from, e.fromPort, e.to, e.port);
}

}  // namespace

FlatGraph flattenGroups(const std::vector<Node>& nodes, const std::vector<Edge>& edges) {
  if (!holdsGroups(nodes)) return {nodes, edges};
  Flattening f;
  flattenInto(nodes, edges, f);
  return std::move(f.out);
}

std::vector<Uuid> allGroupIDs(const NodeGroup& group) {
  std::vector<Uuid> ids;
  for (const auto& n : group.nodes) {
    ids.push_back(n.id);
    if (n.group) {
      const auto inner = allGroupIDs(*n.group);
      ids.insert(ids.end(), inner.begin(), inner.end());
    }
  }
  return ids;
}

}  // namespace ombrik
