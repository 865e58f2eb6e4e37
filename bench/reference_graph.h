#pragma once
// The reference graph of the benchmarks: a still of `w` x `h` → colour → glow → grain → a slightly
// turned and enlarged transform → output, its source loaded into the engine and the comp set.
#include <vector>

#include "engine/engine.h"
#include "engine/source_picture.h"
#include "graph/node.h"

namespace ombrik::bench {

struct ReferenceGraph {
  std::vector<Node> nodes;
  std::vector<Edge> edges;
  Uuid output;
};

inline ReferenceGraph referenceGraph(Engine& engine, int w, int h) {
  engine.setComp(w, h, true);
  Node media(NodeKind::media()), color(NodeKind::color()), glow(NodeKind::glow()), grain(NodeKind::grain()),
      xform(NodeKind::xform()), output(NodeKind::output());
  media.mediaID = Uuid::generate();
  xform.params["angle"] = 3;
  xform.params["scale"] = 1.05;
  engine.addSource(SampleImage::make(w, h), *media.mediaID);
  auto wire = [](const Node& a, const Node& b) { return Edge{Uuid::generate(), a.id, b.id, 0, 0}; };
  return {{media, color, glow, grain, xform, output},
          {wire(media, color), wire(color, glow), wire(glow, grain), wire(grain, xform), wire(xform, output)},
          output.id};
}

}  // namespace ombrik::bench
