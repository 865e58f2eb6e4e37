#include "document/history_state.h"

#include <unordered_map>

namespace ombrik {

GraphSnapshot SharedGraph::snapshot() const {
  GraphSnapshot s;
  s.nodes.reserve(nodes.size());
  for (const auto& n : nodes) s.nodes.push_back(*n);
  if (edges) s.edges = *edges;
  if (positions) s.positions = *positions;
  return s;
}

bool SharedGraph::operator==(const SharedGraph& o) const {
  if (nodes.size() != o.nodes.size()) return false;
  for (std::size_t i = 0; i < nodes.size(); ++i)
    if (nodes[i] != o.nodes[i] && !(*nodes[i] == *o.nodes[i])) return false;
  auto same = [](const auto& a, const auto& b) { return a == b || (a && b && *a == *b); };
  return same(edges, o.edges) && same(positions, o.positions) && openGroups == o.openGroups;
}

SharedGraph HistoryState::capture(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                  const std::map<Uuid, Point>& positions,
                                  const std::vector<OpenGroup>& openGroups, const SharedGraph* like) {
  SharedGraph g;
  g.openGroups = openGroups;
  std::unordered_map<Uuid, const std::shared_ptr<const Node>*> before;
  if (like)
    for (const auto& n : like->nodes) before.emplace(n->id, &n);
  g.nodes.reserve(nodes.size());
  for (const auto& n : nodes) {
    auto it = before.find(n.id);
    if (it != before.end() && **it->second == n) g.nodes.push_back(*it->second);
    else g.nodes.push_back(std::make_shared<const Node>(n));
  }
  g.edges = like && like->edges && *like->edges == edges ? like->edges : std::make_shared<const std::vector<Edge>>(edges);
  g.positions = like && like->positions && *like->positions == positions
                    ? like->positions
                    : std::make_shared<const std::map<Uuid, Point>>(positions);
  return g;
}

}  // namespace ombrik
