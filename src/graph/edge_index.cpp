#include "graph/edge_index.h"

namespace ombrik {

EdgeIndex::EdgeIndex(const std::vector<Edge>& edges) {
  for (const Edge& e : edges) into_[e.to].push_back(&e);
}

const std::vector<const Edge*>& EdgeIndex::into(const Uuid& id) const {
  static const std::vector<const Edge*> none;
  auto it = into_.find(id);
  return it == into_.end() ? none : it->second;
}

const Edge* EdgeIndex::into(const Uuid& id, int port) const {
  for (const Edge* e : into(id))
    if (e->port == port) return e;
  return nullptr;
}

std::unordered_set<Uuid> EdgeIndex::upstream(std::vector<Uuid> from) const {
  std::unordered_set<Uuid> seen;
  while (!from.empty()) {
    const Uuid at = from.back();
    from.pop_back();
    if (!seen.insert(at).second) continue;
    for (const Edge* e : into(at)) from.push_back(e->from);
  }
  return seen;
}

}  // namespace ombrik
