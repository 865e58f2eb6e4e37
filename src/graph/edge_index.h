#pragma once
// Each node's incoming wires, gathered once. Walking up a graph through it costs the graph's size,
// where scanning every wire at every step would cost its square: long chains stay usable.
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "graph/edge.h"

namespace ombrik {

class EdgeIndex {
 public:
  // The edges must outlive the index and stay where they are.
  explicit EdgeIndex(const std::vector<Edge>& edges);

  // In wiring order, as a scan of the list would meet them.
  const std::vector<const Edge*>& into(const Uuid& id) const;
  const Edge* into(const Uuid& id, int port) const;

  // `from` and everything that feeds it, at any distance.
  std::unordered_set<Uuid> upstream(std::vector<Uuid> from) const;

 private:
  std::unordered_map<Uuid, std::vector<const Edge*>> into_;
};

}  // namespace ombrik
