#include "document/graph_editor.h"

#include <algorithm>
#include <cmath>

#include "document/key_anim.h"

namespace ombrik {

namespace {
constexpr double kGrab = 9;  // points
constexpr std::array<std::array<int, 3>, 8> kPalette = {{{240, 181, 74}, {122, 169, 242}, {155, 227, 122}, {224, 120, 138},
                                                         {199, 155, 255}, {111, 214, 210}, {255, 211, 110}, {212, 212, 212}}};
double distance(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }
}  // namespace

std::vector<GraphEditor::Curve> GraphEditor::curves(const Node& node) {
  std::vector<Curve> out;
  int entry = 0;
  for (const auto& [key, ks] : node.anim) {  // sorted by name; an empty list still takes its colour
    const int colour = entry++;
    if (ks.empty()) continue;
    const ParamSpec* spec = node.kind ? node.kind->param(key) : nullptr;
    out.push_back({key, spec ? spec->label.value() : key, ks, kPalette[colour % 8], range(ks)});
  }
  return out;
}

GraphEditor::Range GraphEditor::range(const std::vector<Keyframe>& ks) {
  if (ks.empty()) return {};
  double lo = ks.front().v, hi = lo;
  const std::int64_t first = ks.front().f, last = ks.back().f;
  const std::int64_t step = std::max<std::int64_t>(1, (last - first) / 160);
  for (std::int64_t f = first; f <= last; f += step) {
    const double v = KeyAnim::value(ks, double(f));
    lo = std::min(lo, v), hi = std::max(hi, v);
  }
  for (const auto& k : ks) lo = std::min(lo, k.v), hi = std::max(hi, k.v);
  const double pad = hi - lo < 1e-9 ? 1.0 : 0.12 * (hi - lo);
  return {lo - pad, hi + pad};
}

std::pair<std::optional<Point>, std::optional<Point>> GraphEditor::handlePoints(const std::vector<Keyframe>& ks, int i) {
  std::optional<Point> in, out;
  if (i < 0 || i >= int(ks.size())) return {in, out};
  const Keyframe& k = ks[i];
  if (i + 1 < int(ks.size())) {
    const auto [o, unused] = KeyAnim::influences(k, ks[i + 1]);
    const double span = double(ks[i + 1].f - k.f);
    out = Point{double(k.f) + o * span, k.v + o * k.outSlope * span};
  }
  if (i > 0) {
    const auto [unused, n] = KeyAnim::influences(ks[i - 1], k);
    const double span = double(k.f - ks[i - 1].f);
    in = Point{double(k.f) - n * span, k.v - n * k.inSlope * span};
  }
  return {in, out};
}

double GraphEditor::xOf(double frame, int frameCount, double w) const {
  return mx + frame / std::max(1, frameCount - 1) * (w - 2 * mx);
}
double GraphEditor::yOf(double value, Range r, double h) const {
  return h - my - (value - r.lo) / (r.hi - r.lo) * (h - 2 * my);
}
double GraphEditor::frameAt(double x, int frameCount, double w) const {
  return (x - mx) / std::max(w - 2 * mx, 1.0) * std::max(1, frameCount - 1);
}
double GraphEditor::valueAt(double y, Range r, double h) const {
  return r.lo + (h - my - y) / std::max(h - 2 * my, 1.0) * (r.hi - r.lo);
}

void GraphEditor::handleDrag(AppModel& model, Point start, Point now, bool shift, Size canvas) {
  if (!model.inspectedID) return;
  const Node* node = model.nodeByID(*model.inspectedID);
  if (!node) return;
  const Uuid id = node->id;
  const int frames = model._frameCount;
  const auto all = curves(*node);

  if (!dragging_) {
    dragging_ = true;
    _startPoint = start;
    _shiftAtStart = shift;
    _ranges.clear();
    for (const auto& c : all) _ranges[c.key] = c.range;
    hit_ = Hit::none;
    // 1. The handles of selected keys, outgoing before incoming.
    for (const auto& sel : model._keySel) {
      auto c = std::find_if(all.begin(), all.end(), [&](const Curve& x) { return x.key == sel.key; });
      if (c == all.end() || !visible(c->key) || sel.i < 0 || sel.i >= int(c->ks.size())) continue;
      const auto [in, out] = handlePoints(c->ks, sel.i);
      for (auto [p, isOut] : {std::pair{out, true}, std::pair{in, false}})
        if (p && distance(pointOf(*c, p->x, p->y, frames, canvas), start) <= kGrab) {
          hit_ = Hit::handle, handleKey_ = sel.key, handleIndex_ = sel.i, handleOut_ = isOut;
          break;
        }
      if (hit_ == Hit::handle) break;
    }
    // 2. The nearest key, strictly within reach.
    if (hit_ == Hit::none) {
      std::optional<KeySel> nearest;
      double best = kGrab;
      for (const auto& c : all) {
        if (!visible(c.key)) continue;
        for (int i = 0; i < int(c.ks.size()); ++i)
          if (double d = distance(pointOf(c, double(c.ks[i].f), c.ks[i].v, frames, canvas), start); d < best)
            best = d, nearest = KeySel{c.key, i};
      }
      if (nearest) {
        if (shift) {
          if (!model._keySel.erase(*nearest)) model._keySel.insert(*nearest);
        } else if (!model._keySel.count(*nearest)) {
          model._keySel = {*nearest};
        }
        _startOrig.clear();
        for (const auto& sel : model._keySel)
          if (auto it = node->anim.find(sel.key); it != node->anim.end() && sel.i >= 0 && sel.i < int(it->second.size()))
            _startOrig[sel] = {it->second[sel.i].f, it->second[sel.i].v};
        hit_ = Hit::keys;
      } else {
        hit_ = Hit::marquee;
      }
    }
  }

  switch (hit_) {
    case Hit::handle: {
      auto it = node->anim.find(handleKey_);
      if (it == node->anim.end() || handleIndex_ >= int(it->second.size())) return;
      const auto& ks = it->second;
      const Keyframe& k = ks[handleIndex_];
      const int other = handleOut_ ? handleIndex_ + 1 : handleIndex_ - 1;
      if (other < 0 || other >= int(ks.size())) return;
      const double span = std::abs(double(ks[other].f - k.f));
      if (span <= 0) return;
      const double fp = frameAt(now.x, frames, canvas.width);
      const double dx = handleOut_ ? fp - double(k.f) : double(k.f) - fp;
      const double inf = std::clamp(dx / span, 0.01, 1.0);
      double dv = valueAt(now.y, range_(handleKey_, {}), canvas.height) - k.v;
      if (!handleOut_) dv = -dv;
      model.setHandle(id, handleKey_, handleIndex_, handleOut_, inf, dv / (inf * span));
      break;
    }
    case Hit::keys: {
      const long delta = std::lround(frameAt(now.x, frames, canvas.width) - frameAt(_startPoint.x, frames, canvas.width));
      std::vector<KeySel> order;
      for (const auto& [sel, orig] : _startOrig) order.push_back(sel);
      // Keys are moved in an order that keeps them from meeting.
      std::sort(order.begin(), order.end(), [&](const KeySel& a, const KeySel& b) {
        if (a.key != b.key) return a.key < b.key;
        return delta > 0 ? a.i > b.i : a.i < b.i;
      });
      for (const auto& sel : order) {
        const Range r = range_(sel.key, {});
        const double dv = valueAt(now.y, r, canvas.height) - valueAt(_startPoint.y, r, canvas.height);
        const auto& [f, v] = _startOrig[sel];
        model.moveKey(id, sel.key, sel.i, f + delta, v + dv);
      }
      break;
    }
    case Hit::marquee:
      marquee_ = std::pair{_startPoint, now};
      break;
    case Hit::none:
      break;
  }
}

void GraphEditor::handleEnd(AppModel& model, Point end, Size canvas) {
  const bool wasMarquee = hit_ == Hit::marquee || (!dragging_ && hit_ == Hit::none);
  const Point start = dragging_ ? _startPoint : end;
  dragging_ = false;
  hit_ = Hit::none;
  marquee_.reset();
  if (!wasMarquee) return;
  const double w = std::abs(end.x - start.x), h = std::abs(end.y - start.y);
  if (w > 4 || h > 4) {
    const Node* node = model.inspectedID ? model.nodeByID(*model.inspectedID) : nullptr;
    if (!node) return;
    std::set<KeySel> inside;
    const double x0 = std::min(start.x, end.x), x1 = std::max(start.x, end.x);
    const double y0 = std::min(start.y, end.y), y1 = std::max(start.y, end.y);
    for (const auto& c : curves(*node)) {
      if (!visible(c.key)) continue;
      for (int i = 0; i < int(c.ks.size()); ++i) {
        const Point p = pointOf(c, double(c.ks[i].f), c.ks[i].v, model._frameCount, canvas);
        if (p.x >= x0 && p.x <= x1 && p.y >= y0 && p.y <= y1) inside.insert({c.key, i});
      }
    }
    if (_shiftAtStart) model._keySel.insert(inside.begin(), inside.end());
    else model._keySel = inside;
    return;
  }
  // A click: the playhead goes to the frame under the pointer.
  const long frame = std::lround(frameAt(end.x, model._frameCount, canvas.width));
  model._currentFrame = int(std::clamp<long>(frame, 0, std::max(0, model._frameCount - 1)));
  model.requestRender();
}

}  // namespace ombrik
