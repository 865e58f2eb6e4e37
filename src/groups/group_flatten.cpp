#include "groups/group_flatten.h"

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

void flattenInto(const std::vector<Node>& nodes, const std::vector<Edge>& edges, FlatGraph& out) {
  std::unordered_map<Uuid, const Node*> groups;
  for (const auto& n : nodes) {
    if (!n.group) {
      out.nodes.push_back(n);
      continue;
    }
    groups[n.id] = &n;
    out.nodes.emplace_back(NodeKind::dot(), n.id);
    if (n.bypass) continue;
    const std::vector<Node> inner = innerWithControls(n);
    if (holdsGroups(inner)) {
      flattenInto(inner, n.group->edges, out);
    } else {
      out.nodes.insert(out.nodes.end(), inner.begin(), inner.end());
      out.edges.insert(out.edges.end(), n.group->edges.begin(), n.group->edges.end());
    }
    out.edges.push_back(Edge{Uuid::generate(), n.group->output, n.id, 0, 0});
  }
  for (const auto& e : edges) {
    auto it = groups.find(e.to);
    if (it == groups.end()) {
      out.edges.push_back(e);
      continue;
    }
    const Node& g = *it->second;
    if (g.bypass) {
      if (e.port == 0) out.edges.push_back(Edge{e.id, e.from, e.to, 0, e.fromPort});
      continue;
    }
    if (e.port < 0 || e.port >= int(g.group->inputs.size())) continue;
    for (const GroupTarget& t : g.group->inputs[std::size_t(e.port)].targets)
      out.edges.push_back(Edge{Uuid::generate(), e.from, t.node, t.port, e.fromPort});
  }
}

}  // namespace

FlatGraph flattenGroups(const std::vector<Node>& nodes, const std::vector<Edge>& edges) {
  if (!holdsGroups(nodes)) return {nodes, edges};
  FlatGraph out;
  out.nodes.reserve(nodes.size());
  flattenInto(nodes, edges, out);
  return out;
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
