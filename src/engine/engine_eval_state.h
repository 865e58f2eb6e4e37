#pragma once
// The state of one evaluation, private to the engine's files.
#include <array>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "engine/engine.h"
#include "engine/pass_fusion.h"
#include "gpu/device.h"
#include "graph/edge_index.h"

namespace ombrik {

struct Engine::Eval {
  std::unique_ptr<gpu::CommandList> commands;
  PassPlan plan;  // the passes, written to `commands` when the evaluation ends
  std::vector<Node> nodeStore;
  std::unordered_map<Uuid, const Node*> nodes;
  std::vector<Edge> edges;
  std::optional<EdgeIndex> into;  // over `edges`, once they are in place
  std::unordered_map<Uuid, Tex> done;
  std::unordered_set<Uuid> empty;  // evaluated to nothing: asked again, they stay nothing
  std::unordered_set<Uuid> visiting;
  int cycleHits = 0;  // times a pull met a node it was already inside
  std::unordered_set<Uuid> alphaVisiting;
  std::unordered_set<Uuid> alphaEmpty;
  bool alphaWarming = false;
  std::unordered_map<Uuid, std::array<float, 6>> xformParams;
  std::unordered_map<Uuid, Tex> muxCached;
  std::unordered_map<Uuid, Tex> combined;  // the memo of combinedMattes
  std::optional<Uuid> ignoreMatte;
  std::unordered_set<Uuid> cut;  // nodes read from a file: their upstream is never walked

  const std::vector<const Edge*>& edgesInto(const Uuid& id) const { return into->into(id); }

  const Node* node(const Uuid& id) const {
    auto it = nodes.find(id);
    return it == nodes.end() ? nullptr : it->second;
  }
};

}  // namespace ombrik
