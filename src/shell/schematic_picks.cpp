#include "shell/schematic_picks.h"

#include <algorithm>
#include <cmath>

namespace ombrik::schematic {

namespace {
double dist(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }
constexpr int kNearestSteps = 64;  // samples of the drawn curve searched for the nearest point
}  // namespace

std::vector<Uuid> nodesInRect(const std::vector<Node>& nodes, const Positions& positions, Point a, Point b) {
  const double x0 = std::min(a.x, b.x), x1 = std::max(a.x, b.x), y0 = std::min(a.y, b.y), y1 = std::max(a.y, b.y);
  std::vector<Uuid> in;
  for (const Node& n : nodes)
    if (auto p = positions.find(n.id); p != positions.end())
      if (p->second.x >= x0 && p->second.x <= x1 && p->second.y >= y0 && p->second.y <= y1) in.push_back(n.id);
  return in;
}

std::optional<WireHit> wireAt(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                              const Positions& positions, Point g, double reach) {
  std::optional<WireHit> best;
  double bestDistance = reach;
  for (const Edge& e : edges) {
    const auto from = std::find_if(nodes.begin(), nodes.end(), [&](const Node& n) { return n.id == e.from; });
    const auto to = std::find_if(nodes.begin(), nodes.end(), [&](const Node& n) { return n.id == e.to; });
    const auto pf = positions.find(e.from), pt = positions.find(e.to);
    if (from == nodes.end() || to == nodes.end() || pf == positions.end() || pt == positions.end()) continue;
    const Point a = outPos(*from, pf->second, e.fromPort), b = inPos(*to, pt->second, e.port);
    const double d = distanceToCurve(g, a, b);
    if (d >= bestDistance) continue;
    bestDistance = d;
    // The point itself is taken on the curve as drawn, so that what lands there sits on the wire.
    const Curve drawn = wireCurve(a, b, kDrawBend);
    Point nearest = drawn.at(0);
    for (int k = 1; k <= kNearestSteps; ++k)
      if (const Point p = drawn.at(double(k) / kNearestSteps); dist(p, g) < dist(nearest, g)) nearest = p;
    best = WireHit{e.id, nearest};
  }
  return best;
}

const Node* armableNodeAt(const std::vector<Node>& nodes, const Positions& positions, Point g) {
  const Node* best = nullptr;
  double bestDistance = INFINITY;
  for (const Node& n : nodes) {
    auto p = positions.find(n.id);
    if (p == positions.end() || n.inputCount() == 0) continue;
    const double d = dist(p->second, g);
    if (d <= radius(n) + kArmReach && d < bestDistance) best = &n, bestDistance = d;
  }
  return best;
}

int firstArmedInput(const Node& node, const std::vector<Edge>& edges) {
  for (int i = 0; i < node.inputCount(); ++i)
    if (std::none_of(edges.begin(), edges.end(), [&](const Edge& e) { return e.to == node.id && e.port == i; }))
      return i;
  return 0;
}

std::optional<PortHit> armedSource(const std::vector<Node>& nodes, const Positions& positions, const PortHit& armed,
                                   const Uuid& dragged) {
  const auto target = std::find_if(nodes.begin(), nodes.end(), [&](const Node& n) { return n.id == armed.node; });
  const auto at = positions.find(armed.node);
  if (target == nodes.end() || at == positions.end()) return std::nullopt;
  const Point input = inPos(*target, at->second, armed.port);
  std::optional<PortHit> best;
  double bestDistance = kArmedReach;
  for (const Node& n : nodes) {
    if (n.id == armed.node || (dragged != armed.node && n.id != dragged)) continue;
    auto p = positions.find(n.id);
    if (p == positions.end()) continue;
    for (int port : outputPorts(n))
      if (const double d = dist(outPos(n, p->second, port), input); d < bestDistance)
        best = PortHit{n.id, port, true}, bestDistance = d;
  }
  return best;
}

}  // namespace ombrik::schematic
