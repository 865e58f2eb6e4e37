#pragma once
// The state of one evaluation, private to the engine's files.
#include <array>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "engine/engine.h"
#include "gpu/device.h"

namespace ombrik {

struct Engine::Eval {
  std::unique_ptr<gpu::CommandList> commands;
  std::vector<Node> nodeStore;
  std::unordered_map<Uuid, const Node*> nodes;
  std::vector<Edge> edges;
  std::unordered_map<Uuid, Tex> done;
  std::unordered_set<Uuid> visiting;
  std::unordered_set<Uuid> alphaVisiting;
  std::unordered_map<Uuid, std::array<float, 6>> xformParams;
  std::unordered_map<Uuid, Tex> muxCached;
  std::unordered_map<Uuid, Tex> combined;  // the memo of combinedMattes
  std::optional<Uuid> ignoreMatte;
  std::unordered_set<Uuid> cut;  // nodes read from a file: their upstream is never walked

  const Node* node(const Uuid& id) const {
    auto it = nodes.find(id);
    return it == nodes.end() ? nullptr : it->second;
  }
};

}  // namespace ombrik
