#include "shell/schematic_geometry.h"

#include <QString>
#include <algorithm>
#include <cmath>
#include <numbers>

namespace ombrik::schematic {

namespace {

double dist(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }
Point plus(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
Point polar(double angle, double r) { return {r * std::cos(angle), r * std::sin(angle)}; }

const Node* find(const std::vector<Node>& nodes, const Uuid& id) {
  for (const auto& n : nodes)
    if (n.id == id) return &n;
  return nullptr;
}

// `a` feeds `of` through the wires: a wire from `of` to `a` would close a loop.
bool feeds(const std::vector<Edge>& edges, const Uuid& a, const Uuid& of) {
  std::vector<Uuid> stack{of}, seen;
  while (!stack.empty()) {
    const Uuid at = stack.back();
    stack.pop_back();
    if (std::find(seen.begin(), seen.end(), at) != seen.end()) continue;
    seen.push_back(at);
    for (const auto& e : edges)
      if (e.to == at) {
        if (e.from == a) return true;
        stack.push_back(e.from);
      }
  }
  return false;
}

// Sign of the turn a → b → c; 0 when the three points are in line.
double cross(Point a, Point b, Point c) { return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x); }

bool properlyCross(Point a, Point b, Point c, Point d) {
  const double d1 = cross(a, b, c), d2 = cross(a, b, d), d3 = cross(c, d, a), d4 = cross(c, d, b);
  return ((d1 > 0 && d2 < 0) || (d1 < 0 && d2 > 0)) && ((d3 > 0 && d4 < 0) || (d3 < 0 && d4 > 0));
}

// Where an output sits among the node's mask outputs: its rank, so that the ports stay evenly
// spread when some masks have none; a wire left on a port that has gone keeps the mask's index.
Point maskPortOffset(const Node& node, int fromPort, double r) {
  const std::vector<int> masks = node.maskOutputs();
  const auto it = std::find(masks.begin(), masks.end(), fromPort - 2);
  const int slot = it != masks.end() ? int(it - masks.begin()) : fromPort - 2;
  return outPort(2 + slot, std::max(1, int(masks.size())), r);
}

}  // namespace

double radius(std::string_view kindID) {
  if (kindID == "dot") return 9;
  if (kindID == "media" || kindID == "output") return 92;
  if (kindID == "comp") return 46;
  if (kindID == "merge" || kindID == "mux") return 38;
  return kNodeRadius;
}

Point inPort(int i, int count, double r) {
  const double step = count == 2 ? 1.15 : count == 3 ? 0.9 : 2.4 / std::max(count - 1, 1);
  return polar(std::numbers::pi - (i - (count - 1) / 2.0) * step, r);
}

Point outPort(int port, int count, double r) {
  if (port <= 0) return {r, 0};
  if (port == 1) return {0.7316888688738209 * r, 0.6816387600233341 * r};
  const double angle = -0.42 - std::min(1.9 / std::max(count, 1), 0.42) * (port - 2);
  return polar(angle, r);
}

std::vector<int> outputPorts(const Node& node) {
  if (!node.kind || !node.kind->hasOutput) return {};
  // A single mask is the node's picture already: the node offers outputs per mask only from two.
  std::vector<int> ports{0, 1};
  for (int mask : node.maskOutputs()) ports.push_back(mask + 2);
  return ports;
}

int outputCount(const Node& node) { return int(outputPorts(node).size()); }

int portFor(double offset, int count) {
  if (count < 2) return 0;
  const double t = std::clamp((kNodeSize / 2 + offset) / kNodeSize, 0.0, 0.999);
  return std::min(count - 1, int(t * count));
}

std::string letter(std::string_view name) {
  const QString text = QString::fromUtf8(name.data(), qsizetype(name.size()));
  for (const QChar c : text)
    if (c.isLetterOrNumber()) return QString(c.toUpper()).toStdString();
  return "•";
}

Point Curve::at(double t) const {
  const double u = 1 - t;
  const double a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
  return {a * p0.x + b * p1.x + c * p2.x + d * p3.x, a * p0.y + b * p1.y + c * p2.y + d * p3.y};
}

Curve wireCurve(Point from, Point to, double minBend) {
  const double c = std::max(std::abs(to.x - from.x) / 2, minBend);
  return {from, {from.x + c, from.y}, {to.x - c, to.y}, to};
}

double distanceToCurve(Point p, Point from, Point to) {
  const Curve curve = wireCurve(from, to, kHitBend);
  double best = INFINITY;
  for (int k = 0; k <= kCurveSegments; ++k) best = std::min(best, dist(p, curve.at(double(k) / kCurveSegments)));
  return best;
}

bool crossesCurve(Point a, Point b, Point from, Point to) {
  const Curve curve = wireCurve(from, to, kDrawBend);
  Point previous = curve.at(0);
  for (int k = 1; k <= kCurveSegments; ++k) {
    const Point next = curve.at(double(k) / kCurveSegments);
    if (properlyCross(a, b, previous, next)) return true;
    previous = next;
  }
  return false;
}

View View::zoomedAbout(Point v, double factor) const {
  const Point g = toGraph(v);
  View out;
  out.zoom = std::clamp(zoom * factor, kMinZoom, kMaxZoom);
  out.pan = {v.x - g.x * out.zoom, v.y - g.y * out.zoom};
  return out;
}

std::optional<View> frameAll(const std::vector<Point>& centres, double viewWidth, double viewHeight,
                             const std::vector<double>& reach) {
  if (centres.empty() || viewWidth <= 0) return std::nullopt;
  double x0 = INFINITY, x1 = -INFINITY, y0 = INFINITY, y1 = -INFINITY;
  for (std::size_t i = 0; i < centres.size(); ++i) {
    const Point& c = centres[i];
    const double r = std::max(kNodeSize, i < reach.size() ? reach[i] : 0.0);
    x0 = std::min(x0, c.x - r);
    x1 = std::max(x1, c.x + r);
    y0 = std::min(y0, c.y - r);
    y1 = std::max(y1, c.y + r);
  }
  View v;
  v.zoom = std::min(std::max(std::min(viewWidth / (x1 - x0), viewHeight / (y1 - y0)), kMinZoom), kFrameZoomLimit);
  v.pan = {viewWidth / 2 - (x0 + x1) / 2 * v.zoom, viewHeight / 2 - (y0 + y1) / 2 * v.zoom};
  return v;
}

View revealed(const View& v, Point lo, Point hi, double viewWidth, double viewHeight, double margin) {
  const double roomW = viewWidth - 2 * margin, roomH = viewHeight - 2 * margin;
  if (roomW <= 0 || roomH <= 0) return v;
  View out = v;
  const double fits = std::min(roomW / std::max(hi.x - lo.x, 1e-9), roomH / std::max(hi.y - lo.y, 1e-9));
  if (fits < v.zoom) out = v.zoomedAbout({viewWidth / 2, viewHeight / 2}, std::max(fits, kMinZoom) / v.zoom);
  const Point a = out.toView(lo), b = out.toView(hi);
  auto shift = [margin](double from, double to, double size) {
    if (from < margin) return margin - from;
    if (to > size - margin) return std::max(size - margin - to, margin - from);
    return 0.0;
  };
  out.pan.x += shift(a.x, b.x, viewWidth);
  out.pan.y += shift(a.y, b.y, viewHeight);
  return out;
}

Point outPos(const Node& node, Point centre, int fromPort) {
  if (fromPort < 2) return plus(centre, outPort(fromPort, 1, radius(node)));
  return plus(centre, maskPortOffset(node, fromPort, radius(node)));
}

Point inPos(const Node& node, Point centre, int port) {
  return plus(centre, inPort(port, std::max(1, node.inputCount()), radius(node)));
}

const Node* nodeAt(const std::vector<Node>& nodes, const Positions& positions, Point g) {
  for (auto it = nodes.rbegin(); it != nodes.rend(); ++it) {
    auto at = positions.find(it->id);
    if (at != positions.end() && dist(g, at->second) <= radius(*it)) return &*it;
  }
  return nullptr;
}

std::optional<PortHit> portAt(const std::vector<Node>& nodes, const Positions& positions, Point g, double reach) {
  std::optional<PortHit> best;
  double bestDist = reach;
  auto consider = [&](const Node& n, int port, bool isOutput, Point p) {
    const double d = dist(g, p);
    if (d <= bestDist) {
      bestDist = d;
      best = PortHit{n.id, port, isOutput};
    }
  };
  for (const auto& n : nodes) {
    auto at = positions.find(n.id);
    if (at == positions.end()) continue;
    for (int p : outputPorts(n)) consider(n, p, true, outPos(n, at->second, p));
    for (int i = 0; i < n.inputCount(); ++i) consider(n, i, false, inPos(n, at->second, i));
  }
  return best;
}

std::optional<PortHit> wireTarget(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                  const Positions& positions, const Uuid& from, int fromPort, Point g) {
  const Node* source = find(nodes, from);
  if (!source) return std::nullopt;
  const Node* target = nullptr;
  double nearest = INFINITY;
  for (const auto& n : nodes) {
    auto at = positions.find(n.id);
    if (n.id == from || at == positions.end() || n.inputCount() == 0) continue;
    const double d = dist(g, at->second);
    if (d <= radius(n) + 30 && d < nearest && !feeds(edges, n.id, from)) {
      nearest = d;
      target = &n;
    }
  }
  if (!target) return std::nullopt;
  const Point centre = positions.at(target->id);
  const bool carriesMatte = fromPort >= 1 || source->kind->makesMatte();
  auto freePort = [&](int i) {
    return std::none_of(edges.begin(), edges.end(), [&](const Edge& e) { return e.to == target->id && e.port == i; });
  };
  auto nearestPort = [&](bool wantMatte, bool anyType) -> std::optional<PortHit> {
    std::optional<PortHit> pick;
    double best = INFINITY;
    for (int i = 0; i < target->inputCount(); ++i) {
      const bool isMatte = i < int(target->kind->inputs.size()) && target->kind->inputs[i].isMatte;
      if ((!anyType && isMatte != wantMatte) || !freePort(i)) continue;
      const double d = dist(g, inPos(*target, centre, i));
      if (d < best) {
        best = d;
        pick = PortHit{target->id, i, false};
      }
    }
    return pick;
  };
  if (carriesMatte) {
    if (auto p = nearestPort(true, false)) return p;
    return nearestPort(true, true);
  }
  return nearestPort(false, false);
}

std::vector<Uuid> edgesCrossed(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                               const Positions& positions, Point a, Point b) {
  std::vector<Uuid> out;
  for (const auto& e : edges) {
    const Node* f = find(nodes, e.from);
    const Node* t = find(nodes, e.to);
    auto pf = positions.find(e.from), pt = positions.find(e.to);
    if (!f || !t || pf == positions.end() || pt == positions.end()) continue;
    if (crossesCurve(a, b, outPos(*f, pf->second, e.fromPort), inPos(*t, pt->second, e.port))) out.push_back(e.id);
  }
  return out;
}

double pullDistance(const std::vector<Node>& nodes, const std::vector<Edge>& edges, const Positions& positions,
                    const Uuid& edge) {
  auto e = std::find_if(edges.begin(), edges.end(), [&](const Edge& x) { return x.id == edge; });
  if (e == edges.end()) return -INFINITY;
  const Node* a = find(nodes, e->from);
  const Node* b = find(nodes, e->to);
  auto pa = positions.find(e->from), pb = positions.find(e->to);
  if (!a || !b || pa == positions.end() || pb == positions.end()) return -INFINITY;
  return dist(pa->second, pb->second) - (radius(*a) + radius(*b) + kContactGap);
}

std::vector<Uuid> touchingWires(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                const Positions& positions, const Uuid& dragged) {
  std::vector<Uuid> out;
  for (const Edge& e : edges)
    if ((e.from == dragged || e.to == dragged) && e.from != e.to && pullDistance(nodes, edges, positions, e.id) < 0)
      out.push_back(e.id);
  return out;
}

std::optional<Uuid> contactOf(const std::vector<Node>& nodes, const Positions& positions, const Uuid& dragged,
                              Point at, std::optional<Uuid> held) {
  const Node* self = find(nodes, dragged);
  if (!self) return std::nullopt;
  auto reach = [&](const Node& n) { return radius(*self) + radius(n) + kContactGap; };
  std::optional<Uuid> nearest;
  double best = INFINITY;
  for (const auto& n : nodes) {
    auto p = positions.find(n.id);
    if (n.id == dragged || p == positions.end()) continue;
    const double d = dist(at, p->second);
    if (d >= reach(n)) continue;
    if (held && n.id == *held) return held;  // a contact holds until it is broken
    if (d < best) {
      best = d;
      nearest = n.id;
    }
  }
  return nearest;
}

namespace {

bool feedsMattes(const Node& n) { return n.kind->id == "mask" || n.kind->id == "xform" || n.kind->id == "meshwarp"; }

std::optional<Snap> contactLink(const Node& self, Point at, const Node& other, Point otherAt,
                                const std::vector<Edge>& edges) {
  const bool selfFeeds = at.x < otherAt.x;
  const Node& source = selfFeeds ? self : other;
  const Node& target = selfFeeds ? other : self;
  if (!source.kind->hasOutput || target.inputCount() == 0) return std::nullopt;
  const double offset = selfFeeds ? at.y - otherAt.y : otherAt.y - at.y;
  const int port = portFor(offset, target.inputCount());
  const bool taken = std::any_of(edges.begin(), edges.end(), [&](const Edge& e) { return e.to == target.id && e.port == port; });
  const bool matte = port < int(target.kind->inputs.size()) && target.kind->inputs[port].isMatte;
  if (taken || (matte && !feedsMattes(source)) || feeds(edges, target.id, source.id)) return std::nullopt;
  return Snap::link(source.id, target.id, port);
}

}  // namespace

std::optional<Snap> computeSnap(const std::vector<Node>& nodes, const std::vector<Edge>& edges,
                                const Positions& positions, const Uuid& dragged, Point at,
                                std::optional<Uuid> contact) {
  const Node* self = find(nodes, dragged);
  if (!self) return std::nullopt;
  if (const Node* other = contact ? find(nodes, *contact) : nullptr)
    if (auto p = positions.find(other->id); p != positions.end())
      if (auto link = contactLink(*self, at, *other, p->second, edges)) return link;
  // Only a node that passes a picture through can sit on a wire.
  if (!self->kind->hasOutput || self->inputCount() == 0) return std::nullopt;
  std::optional<Snap> best;
  double nearest = kInsertReach;
  for (const auto& e : edges) {
    if (e.from == dragged || e.to == dragged) continue;
    const Node* f = find(nodes, e.from);
    const Node* t = find(nodes, e.to);
    auto pf = positions.find(e.from), pt = positions.find(e.to);
    if (!f || !t || pf == positions.end() || pt == positions.end()) continue;
    const double d = distanceToCurve(at, outPos(*f, pf->second, e.fromPort), inPos(*t, pt->second, e.port));
    if (d < nearest) {
      nearest = d;
      best = Snap::insert(e.id);
    }
  }
  return best;
}

Band bandRect(DropBand band, double viewWidth, double viewHeight) {
  if (band == DropBand::none) return {};
  // Each band takes a bottom corner, leaving the middle of the edge to plain moves.
  const double height = 40, width = std::min(260.0, viewWidth * 0.4);
  const double y = viewHeight - height;
  return band == DropBand::trash ? Band{0, y, width, height} : Band{viewWidth - width, y, width, height};
}

DropBand bandAt(Point v, double viewWidth, double viewHeight) {
  for (DropBand band : {DropBand::trash, DropBand::context}) {
    const Band b = bandRect(band, viewWidth, viewHeight);
    if (v.x >= b.x && v.x < b.x + b.width && v.y >= b.y && v.y < b.y + b.height) return band;
  }
  return DropBand::none;
}

}  // namespace ombrik::schematic
