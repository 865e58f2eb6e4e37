#include "groups/fresh_ids.h"

#include <unordered_map>

namespace ombrik {

NodeGroup fresh(const NodeGroup& group) {
  NodeGroup g = group;
  std::unordered_map<Uuid, Uuid> ids;
  for (auto& n : g.nodes) {
    n.id = ids[n.id] = Uuid::generate();
    if (n.group) n.group = fresh(*n.group);
  }
  auto renewed = [&](const Uuid& x) {
    auto it = ids.find(x);
    return it == ids.end() ? x : it->second;
  };
  for (auto& e : g.edges) e = Edge{Uuid::generate(), renewed(e.from), renewed(e.to), e.port, e.fromPort};
  std::map<Uuid, Point> positions;
  for (const auto& [id, p] : g.positions) positions[renewed(id)] = p;
  g.positions = std::move(positions);
  for (auto& in : g.inputs)
    for (auto& t : in.targets) t.node = renewed(t.node);
  for (auto& c : g.controls) c.node = renewed(c.node);
  g.output = renewed(g.output);
  return g;
}

}  // namespace ombrik
