#include "document/roto_drag.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "document/app_model.h"
#include "tracking/roto.h"

namespace ombrik {

namespace {
Point plus(Point a, Point b) { return {a.x + b.x, a.y + b.y}; }
Point minus(Point a, Point b) { return {a.x - b.x, a.y - b.y}; }

struct EllipseFrame {
  Point c;           // centre, normalised
  double rx, ry;     // radii in comp pixels
  double cs, sn;     // rotation
  double W, H;
  Point local(Point p) const {  // comp pixels in the ellipse's own axes
    const double dx = (p.x - c.x) * W, dy = (p.y - c.y) * H;
    return {dx * cs + dy * sn, -dx * sn + dy * cs};
  }
  Point world(Point l) const { return {c.x + (l.x * cs - l.y * sn) / W, c.y + (l.x * sn + l.y * cs) / H}; }
};

EllipseFrame frameOf(const MaskKey& k, double W, double H) {
  const double a = k.rot * std::numbers::pi / 180;
  return {{k.cx / 100, k.cy / 100}, k.rx / 100 * W, k.ry / 100 * H, std::cos(a), std::sin(a), W, H};
}
}  // namespace

double RotoDrag::points(Point a, Point b) const { return std::hypot((a.x - b.x) * width_, (a.y - b.y) * height_); }

std::optional<int> RotoDrag::pointAt(Point at) const {
  const Node* n = model_.nodeByID(*node_);
  if (!n) return std::nullopt;
  const Node shown = model_.resolvedMask(*n);
  std::optional<int> best;
  double bestD = kHandle;
  for (int i = 0; i < int(shown.shape.size()); ++i)
    if (const double d = points(shown.shape[i].p, at); d <= bestD) best = i, bestD = d;
  return best;
}

bool RotoDrag::press(Point at, const RotoKeys& keys, double width, double height) {
  kind_.reset();
  marqueeEnd_.reset();
  node_ = model_.rotoNode();
  if (!node_ || model_.roto.rotoTool == RotoTool::moveImage) return false;
  width_ = std::max(1.0, width), height_ = std::max(1.0, height);
  pressAt_ = at;
  moved_ = 0;
  const Uuid id = *node_;
  const Node* n = model_.nodeByID(id);
  const Node shown = model_.resolvedMask(*n);
  const auto& shape = shown.shape;
  const int count = int(shape.size());
  const RotoTool tool = model_.roto.rotoTool;
  auto& sel = model_.roto.selectedPoints;

  // Closing an open outline on its first point.
  if (tool == RotoTool::bezier && !shown.shapeClosed && count >= 3 && points(shape[0].p, at) <= kHandle) {
    model_.shapeClose(id);
    kind_ = Done{};
    return true;
  }
  // Inserting on a segment: with A anywhere on a closed shape or near an open one; with Ctrl near.
  if (count >= 2 && (keys.aHeld || keys.ctrl)) {
    const double aspect = width_ / height_;
    if (auto hit = Roto::nearestSegment(shape, shown.shapeClosed, at, aspect)) {
      const double d = hit->distance * height_;
      if (keys.aHeld && (shown.shapeClosed || d < kANear)) {
        model_.shapeInsertPoint(id, hit->segment, hit->t);
        const int index = hit->segment + 1;
        if (d >= kANear) model_.shapeMovePoint(id, index, at);
        kind_ = NewPoint{index, at};
        return true;
      }
      if (keys.ctrl && d <= kInsertNear) {
        model_.shapeInsertPoint(id, hit->segment, hit->t);
        kind_ = PointDrag{hit->segment + 1};
        return true;
      }
    }
  }
  // The tangents of the selected point.
  if (auto s = model_.roto.selectedPoint; s && *s < count) {
    const SplinePoint& p = shape[*s];
    for (bool isOut : {true, false}) {
      const Point t = isOut ? p.outT : p.inT;
      if (t == Point{}) continue;
      if (points(plus(p.p, t), at) <= kHandle) {
        kind_ = Tangent{*s, isOut, !keys.alt};
        return true;
      }
    }
  }
  // The points.
  if (auto hit = pointAt(at)) {
    const int i = *hit;
    if (keys.alt) {
      model_.shapeDeletePoint(id, i);
      kind_ = Done{};
    } else if (keys.shift) {
      if (model_.roto.selectedPoint) sel.insert(*model_.roto.selectedPoint);
      sel.insert(i);
      model_.roto.selectedPoint = i;
      kind_ = Done{};
    } else if (sel.size() > 1 && sel.count(i)) {
      if (int(sel.size()) >= count) {
        const MaskKey k = model_.key(shown);
        kind_ = Shape{k.cx, k.cy, at};
      } else {
        Group g{{}, at};
        for (int j : sel) g.starts[j] = shape[j].p;
        kind_ = g;
      }
    } else {
      sel.clear();
      model_.roto.selectedPoint = i;
      kind_ = PointDrag{i};
    }
    return true;
  }
  if (shown.ellipse && shown.shape.empty() && pressEllipse(at)) return true;
  // Inside the outline: the whole mask moves.
  const bool inside = count >= 3 ? Roto::contains(Roto::flatten(shape, true, 10), at) : false;
  if (inside) {
    const MaskKey k = model_.key(shown);
    kind_ = Shape{k.cx, k.cy, at};
    return true;
  }
  // Free space: another mask of the node under the press becomes the active one.
  const std::vector<GMask> layers = model_.maskLayersAt(*n);
  const int active = n->masks.empty() ? 0 : std::clamp(n->maskIndex, 0, int(layers.size()) - 1);
  const double W = std::max(1, model_._compSize.width), H = std::max(1, model_._compSize.height);
  for (int i = 0; i < int(layers.size()); ++i) {
    if (i == active) continue;
    const GMask& m = layers[i];
    bool hit = m.shape.size() >= 3 && Roto::contains(Roto::flatten(m.shape, true, 10), at);
    if (!hit && m.ellipse && m.shape.empty()) {
      Node probe;
      probe.params = m.params;
      const Point l = frameOf(model_.key(probe), W, H).local(at);
      const double rx = std::max(1e-9, m.params.at("rx") / 100 * W), ry = std::max(1e-9, m.params.at("ry") / 100 * H);
      hit = (l.x / rx) * (l.x / rx) + (l.y / ry) * (l.y / ry) <= 1;
    }
    if (hit) {
      model_.selectMask(id, i);
      kind_ = Done{};
      return true;
    }
  }
  if (keys.shift || tool == RotoTool::select) {
    kind_ = PendingNew{at};
    return true;
  }
  if (tool == RotoTool::ellipse) {
    model_.newMask(id);
    model_.startEllipse(id, at);
    kind_ = Size{0};
    return true;
  }
  // The Bézier tool: a point added to the open outline, or the first of a new mask.
  if (shown.shapeClosed || shown.ellipse) model_.newMask(id);
  if (auto index = model_.shapeAddPoint(id, at)) kind_ = NewPoint{*index, at};
  return true;
}

bool RotoDrag::pressEllipse(Point at) {
  const Node* n = model_.nodeByID(*node_);
  const Node shown = model_.resolvedMask(*n);
  const double W = std::max(1, model_._compSize.width), H = std::max(1, model_._compSize.height);
  const EllipseFrame f = frameOf(model_.key(shown), W, H);
  const std::pair<Point, int> handles[] = {{{f.rx, f.ry}, 0}, {{f.rx, 0}, 1}, {{0, f.ry}, 2}};
  for (const auto& [local, which] : handles)
    if (points(f.world(local), at) <= kHandle) {
      kind_ = Size{which};
      return true;
    }
  const Point l = f.local(at);
  if ((l.x / std::max(f.rx, 1e-9)) * (l.x / std::max(f.rx, 1e-9)) + (l.y / std::max(f.ry, 1e-9)) * (l.y / std::max(f.ry, 1e-9)) <= 1) {
    const MaskKey k = model_.key(shown);
    kind_ = Shape{k.cx, k.cy, at};
    return true;
  }
  return false;
}

void RotoDrag::drag(Point at) {
  if (!kind_ || !node_) return;
  if (moved_ == 0 && at == pressAt_) return;  // a click: nothing moves
  moved_ = std::max(moved_, points(at, pressAt_));
  const Uuid id = *node_;
  if (auto* p = std::get_if<PointDrag>(&*kind_)) {
    model_.shapeMovePoint(id, p->index, at);
  } else if (auto* g = std::get_if<Group>(&*kind_)) {
    model_.shapeMovePoints(id, g->starts, at.x - g->at.x, at.y - g->at.y);
  } else if (auto* s = std::get_if<Shape>(&*kind_)) {
    model_.setMaskParams(id, {{"cx", s->cx + (at.x - s->at.x) * 100}, {"cy", s->cy + (at.y - s->at.y) * 100}});
  } else if (auto* t = std::get_if<Tangent>(&*kind_)) {
    const Node* n = model_.nodeByID(id);
    if (!n || t->index >= int(n->shape.size())) return;
    const Point anchor = model_.resolvedMask(*n).shape[t->index].p;
    model_.shapeSetTangent(id, t->index, minus(at, anchor), t->isOut, t->mirror);
  } else if (auto* np = std::get_if<NewPoint>(&*kind_)) {
    if (moved_ > kPull) model_.shapeSetTangent(id, np->index, minus(at, np->at), true, true);
  } else if (auto* sz = std::get_if<Size>(&*kind_)) {
    const Node* n = model_.nodeByID(id);
    if (!n) return;
    const double W = std::max(1, model_._compSize.width), H = std::max(1, model_._compSize.height);
    const Point l = frameOf(model_.key(model_.resolvedMask(*n)), W, H).local(at);
    std::map<std::string, double> radii;
    if (sz->which != 2) radii["rx"] = std::max(0.5, std::abs(l.x) / W * 100);
    if (sz->which != 1) radii["ry"] = std::max(0.5, std::abs(l.y) / H * 100);
    // The drawing press of a new ellipse gives it no size until the mouse really moves.
    if (moved_ > kPull || model_.roto.rotoTool != RotoTool::ellipse) model_.setMaskParams(id, radii);
  } else if (auto* pending = std::get_if<PendingNew>(&*kind_)) {
    if (moved_ > kPending) kind_ = Marquee{pending->at};
  }
  if (std::holds_alternative<Marquee>(*kind_)) marqueeEnd_ = at;
}

void RotoDrag::release(Point at) {
  if (!kind_ || !node_) return;
  drag(at);
  if (auto* m = std::get_if<Marquee>(&*kind_)) {
    const double x0 = std::min(m->start.x, at.x), x1 = std::max(m->start.x, at.x);
    const double y0 = std::min(m->start.y, at.y), y1 = std::max(m->start.y, at.y);
    auto& sel = model_.roto.selectedPoints;
    sel.clear();
    if (const Node* n = model_.nodeByID(*node_)) {
      const Node shown = model_.resolvedMask(*n);
      for (int i = 0; i < int(shown.shape.size()); ++i) {
        const Point p = shown.shape[i].p;
        if (p.x >= x0 && p.x <= x1 && p.y >= y0 && p.y <= y1) sel.insert(i);
      }
    }
    model_.roto.selectedPoint = sel.empty() ? std::nullopt : std::optional<int>(*sel.begin());
  } else if (std::holds_alternative<PendingNew>(*kind_)) {
    model_.roto.selectedPoint.reset();
    model_.roto.selectedPoints.clear();
  }
  kind_.reset();
  marqueeEnd_.reset();
}

bool RotoDrag::doubleClick(Point at, double width, double height) {
  node_ = model_.rotoNode();
  if (!node_) return false;
  width_ = std::max(1.0, width), height_ = std::max(1.0, height);
  if (auto hit = pointAt(at)) {
    model_.shapeToggleSmooth(*node_, *hit);
    return true;
  }
  return false;
}

}  // namespace ombrik
