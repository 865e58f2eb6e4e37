#include "tracking/mask_pose.h"

#include <algorithm>

#include "tracking/roto.h"

namespace ombrik {

MaskKey maskKeyOf(const Node& node) {
  auto get = [&](const char* key, double fallback) {
    auto it = node.params.find(key);
    return it == node.params.end() ? fallback : it->second;
  };
  return {get("cx", 50), get("cy", 50), get("rx", 20), get("ry", 20), get("rot", 0)};
}

Node placeShape(Node node, const MaskKey& key, double W, double H) {
  node.trackNow = key;
  if (!node.shapeBase || *node.shapeBase == key || node.shape.empty()) return node;
  const MaskKey base = *node.shapeBase;
  for (SplinePoint& s : node.shape) {
    const Point p = Roto::xform(s.p, base, key, W, H);
    const Point in = Roto::xform({s.p.x + s.inT.x, s.p.y + s.inT.y}, base, key, W, H);
    const Point out = Roto::xform({s.p.x + s.outT.x, s.p.y + s.outT.y}, base, key, W, H);
    s = {p, {in.x - p.x, in.y - p.y}, {out.x - p.x, out.y - p.y}};
  }
  return node;
}

std::vector<Edge> edgesAfterMaskRemoved(std::vector<Edge> edges, const Uuid& nodeID, int index) {
  std::erase_if(edges, [&](const Edge& e) { return e.from == nodeID && e.fromPort == index + 2; });
  for (Edge& e : edges)
    if (e.from == nodeID && e.fromPort > index + 2) --e.fromPort;
  return edges;
}

void toggleSmooth(std::vector<SplinePoint>& shape, bool closed, int index) {
  const int n = int(shape.size());
  if (index < 0 || index >= n) return;
  SplinePoint& s = shape[index];
  if (!(s.inT == Point{}) || !(s.outT == Point{})) {
    s.inT = s.outT = {};
    return;
  }
  const int prev = closed ? (index + n - 1) % n : std::max(index - 1, 0);
  const int next = closed ? (index + 1) % n : std::min(index + 1, n - 1);
  const Point t{(shape[next].p.x - shape[prev].p.x) / 6, (shape[next].p.y - shape[prev].p.y) / 6};
  s.outT = t;
  s.inT = {-t.x, -t.y};
}

}  // namespace ombrik
