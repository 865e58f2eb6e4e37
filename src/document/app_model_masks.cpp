// The masks of mask nodes: several masks per node, shapes drawn point by point, ellipses, and the
// placement of a mask at a frame. The geometry lives in src/tracking; these are the operations.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "document/app_model.h"
#include "platform/scheduler.h"
#include "tracking/frame_keys.h"
#include "tracking/mask_pose.h"
#include "tracking/pin_plan.h"
#include "tracking/planar_track.h"
#include "tracking/track_offset.h"
#include "tracking/roto.h"

namespace ombrik {

namespace {
std::string maskText(const char* format, int index) {
  char text[160];
  std::snprintf(text, sizeof text, format, index + 1);
  return text;
}
bool isMask(const Node* n) { return n && n->kind && n->kind->id == "mask"; }
}  // namespace

MaskKey AppModel::key(const Node& node) const { return maskKeyOf(node); }

Node AppModel::resolvedMask(const Node& node, std::optional<int> frame) const {
  const int f = frame ? *frame : evalFrameOverride ? *evalFrameOverride : _currentFrame;
  Node r = animated(node, frame);
  r.trackBase = key(r);
  MaskKey k = key(r);
  if (r.track.empty()) {
    if (auto pin = pinPose(r.pins, f)) k = *pin;
  } else {  // the raw track, each channel switchable, with the hand offsets over it
    const MaskKey pose = *nearestKey(r.track, f);
    const MaskKey base = r.trackRef && r.track.count(*r.trackRef) ? r.track.at(*r.trackRef) : r.track.begin()->second;
    auto on = [&](const char* key) { return !r.params.count(key) || r.params.at(key) > 0.5; };
    const Point o = isMask(&r) ? trackOffsetValue(r.trackOff, f) : Point{0, 0};
    if (on("trk_pos")) k.cx = pose.cx + o.x, k.cy = pose.cy + o.y;
    else k.cx = base.cx, k.cy = base.cy;
    k.rot = on("trk_rot") ? pose.rot : base.rot;
    k.rx = on("trk_scale") ? pose.rx : base.rx;
    k.ry = on("trk_scale") ? pose.ry : base.ry;
  }
  if (!r.track.empty() || !r.pins.empty())
    r.params["cx"] = k.cx, r.params["cy"] = k.cy, r.params["rx"] = k.rx, r.params["ry"] = k.ry, r.params["rot"] = k.rot;
  const double W = std::max(1, _compSize.width), H = std::max(1, _compSize.height);
  r = placeShape(std::move(r), k, W, H);
  if (!r.shape.empty())  // a planar track carries the shape itself, perspective and all
    if (auto h = planarHomography(r, f, W, H))
      for (SplinePoint& s : r.shape) {
        const Point p = Homography::apply(*h, s.p);
        const Point in = Homography::apply(*h, {s.p.x + s.inT.x, s.p.y + s.inT.y});
        const Point out = Homography::apply(*h, {s.p.x + s.outT.x, s.p.y + s.outT.y});
        s = {p, {in.x - p.x, in.y - p.y}, {out.x - p.x, out.y - p.y}};
      }
  return r;
}

std::vector<GMask> AppModel::maskLayersAt(const Node& node) const {
  const std::vector<GMask> all = node.allMasks();
  const int active = node.masks.empty() ? 0 : std::min<int>(int(all.size()) - 1, std::max(node.maskIndex, 0));
  std::vector<GMask> layers;
  layers.reserve(all.size());
  for (int i = 0; i < int(all.size()); ++i) {
    Node one = node;
    if (i != active) one.loadMask(all[i]);
    one.masks.clear();
    layers.push_back(resolvedMask(one).activeMask());
  }
  return layers;
}

Point AppModel::toBase(const Node& node, Point at) const {
  // Follows and planar tracks map the point first once the tracking tools exist.
  if (!node.shapeBase) return at;
  return Roto::xform(at, key(resolved(node)), *node.shapeBase, std::max(1, _compSize.width),
                     std::max(1, _compSize.height));
}

void AppModel::editShape(const Uuid& nodeID, const std::function<void(Node&)>& edit) {
  Node* n = nodeByID(nodeID);
  if (!n) return;
  Node copy = *n;
  edit(copy);
  if (copy == *n) return;
  *n = std::move(copy);
  storedNodes();
}

void AppModel::activateMask(const Uuid& nodeID, const std::vector<GMask>& all, int index) {
  editShape(nodeID, [&](Node& node) {
    node.masks = all;
    node.maskIndex = index;
    node.loadMask(all[index]);
  });
  roto.selectedPoint.reset();
  roto.selectedPoints.clear();
  roto.trackDots.clear();
}

void AppModel::selectMask(const Uuid& nodeID, int index) {
  Node* n = nodeByID(nodeID);
  if (_trackingProgress || !isMask(n)) return;
  const std::vector<GMask> all = n->allMasks();
  const int current = n->masks.empty() ? 0 : std::clamp(n->maskIndex, 0, int(all.size()) - 1);
  if (index < 0 || index >= int(all.size()) || index == current) return;
  activateMask(nodeID, all, index);
  _status = maskText("Mask %02d · double I : voir seulement ce masque", index);
}

int AppModel::newMask(const Uuid& nodeID) {
  Node* n = nodeByID(nodeID);
  if (_trackingProgress || !isMask(n)) return 0;
  std::vector<GMask> all = n->allMasks();
  if (all.size() == 1 && all[0].shape.empty() && !all[0].ellipse) return 0;  // the empty mask is reused
  all.push_back(n->freshMask());
  const int index = int(all.size()) - 1;
  activateMask(nodeID, all, index);
  _status = maskText("Mask %02d créé", index);
  return index;
}

void AppModel::deleteMask(const Uuid& nodeID, int index) {
  Node* n = nodeByID(nodeID);
  if (_trackingProgress || !isMask(n)) return;
  std::vector<GMask> all = n->allMasks();
  if (index < 0 || index >= int(all.size())) return;
  if (all.size() == 1) {
    editShape(nodeID, [](Node& node) {
      node.loadMask(node.freshMask());
      node.masks.clear();
      node.maskIndex = 0;
    });
  } else {
    const int old = std::clamp(n->maskIndex, 0, int(all.size()) - 1);
    all.erase(all.begin() + index);
    int active = old == index ? std::max(index - 1, 0) : old > index ? old - 1 : old;
    active = std::min(active, int(all.size()) - 1);
    _edges = edgesAfterMaskRemoved(std::move(_edges), nodeID, index);
    storedEdges();
    editShape(nodeID, [&](Node& node) {
      node.masks = all.size() > 1 ? all : std::vector<GMask>{};
      node.maskIndex = all.size() > 1 ? active : 0;
      node.loadMask(all[active]);
    });
  }
  roto.selectedPoint.reset();
  roto.selectedPoints.clear();
  if (const Node* after = nodeByID(nodeID); roto.maskIsolate && after->masks.empty()) roto.maskIsolate = false;
}

void AppModel::setMaskParam(const Uuid& nodeID, int index, const std::string& key, double value) {
  const Node* n = nodeByID(nodeID);
  if (!n) return;
  if (n->masks.empty() || index == n->maskIndex) {
    editShape(nodeID, [&](Node& node) { node.params[key] = value; });
    return;
  }
  if (index < 0 || index >= int(n->masks.size())) return;
  editShape(nodeID, [&](Node& node) { node.masks[index].params[key] = value; });
}

void AppModel::setMaskBlend(const Uuid& nodeID, int index, int blend) { setMaskParam(nodeID, index, "blend", blend); }

void AppModel::setMaskParams(const Uuid& nodeID, const std::map<std::string, double>& values) {
  const Node* n = nodeByID(nodeID);
  if (!n) return;
  static const std::set<std::string> poseKeys = {"cx", "cy", "rx", "ry", "rot"};
  const MaskKey k = key(resolved(*n));
  if (!n->track.empty() && tracking.correct && isMask(n) && (values.count("cx") || values.count("cy"))) {
    // Dragging a tracked mask corrects it at this frame: the raw track stays, an offset key goes on top.
    const auto at = [&](const char* name, double now) { return values.count(name) ? values.at(name) - now : 0.0; };
    addTrackOffset(std::size_t(n - _nodes.data()), at("cx", k.cx), at("cy", k.cy));
    std::map<std::string, double> rest = values;
    rest.erase("cx"), rest.erase("cy");
    if (!rest.empty()) setMaskParams(nodeID, rest);
    return;
  }
  if (!n->track.empty()) {
    // A tracked mask moves as a whole: every tracked placement shifts with the hand's change.
    editShape(nodeID, [&](Node& node) {
      for (const auto& [name, v] : values) {
        if (name == "cx" || name == "cy") {
          const double d = v - (name == "cx" ? k.cx : k.cy);
          for (auto& [f, t] : node.track) (name == "cx" ? t.cx : t.cy) += d;
          node.params[name] = d + (node.params.count(name) ? node.params[name] : 50);
          shiftPlanar(node.planarH, name == "cx" ? d / 100 : 0, name == "cy" ? d / 100 : 0);
        } else if (name == "rot") {
          const double d = v - k.rot;
          for (auto& [f, t] : node.track) t.rot += d;
          node.params["rot"] = d + (node.params.count("rot") ? node.params["rot"] : 0);
        } else if (name == "rx" || name == "ry") {
          const double f = v / std::max(name == "rx" ? k.rx : k.ry, 0.01);
          for (auto& [fr, t] : node.track) (name == "rx" ? t.rx : t.ry) *= f;
          node.params[name] = f * (node.params.count(name) ? node.params[name] : 20);
        } else {
          node.params[name] = v;
        }
      }
    });
    return;
  }
  const bool posed = std::any_of(values.begin(), values.end(), [](const auto& kv) { return poseKeys.count(kv.first) > 0; });
  if (!n->pins.empty() && posed) {
    MaskKey pin = k;
    std::map<std::string, double> others;
    for (const auto& [name, v] : values) {
      if (name == "cx") pin.cx = v;
      else if (name == "cy") pin.cy = v;
      else if (name == "rx") pin.rx = v;
      else if (name == "ry") pin.ry = v;
      else if (name == "rot") pin.rot = v;
      else others[name] = v;
    }
    editShape(nodeID, [&](Node& node) {
      node.pins[_currentFrame] = pin;
      for (const auto& [name, v] : others) node.params[name] = v;
    });
    return;
  }
  // An animated placement takes a key at this frame, as its slider would.
  std::map<std::string, double> still;
  for (const auto& [name, v] : values)
    if (n->anim.count(name)) setKey(nodeID, name, _currentFrame, v);
    else still[name] = v;
  if (!still.empty()) setParams(nodeID, still);
}

void AppModel::toggleMaskIsolate() {
  const Node* n = inspectedID ? nodeByID(*inspectedID) : nullptr;
  if (!n && _selected) n = nodeByID(*_selected);
  if (!isMask(n)) return;
  roto.maskIsolate = !roto.maskIsolate;
  _status = roto.maskIsolate ? maskText("Mask %02d seul · double I pour revoir tous les masques", n->maskIndex)
                             : "Tous les masques visibles";
  invalidatePlayCache();
  requestRender();
}

void AppModel::clearTrack(const Uuid& nodeID) {
  const Node* n = nodeByID(nodeID);
  if (!n) return;
  const MaskKey k = key(resolved(*n));
  std::optional<std::vector<double>> H;
  if (!n->planarH.empty()) {
    auto it = n->planarH.lower_bound(_currentFrame);  // this frame's, else the nearest key
    if (it == n->planarH.end() || (it != n->planarH.begin() && it->first != _currentFrame &&
                                   _currentFrame - std::prev(it)->first <= it->first - _currentFrame))
      it = std::prev(it);
    if (it->second.size() == 9) H = it->second;
  }
  editShape(nodeID, [&](Node& node) {
    node.params["cx"] = k.cx, node.params["cy"] = k.cy, node.params["rx"] = k.rx, node.params["ry"] = k.ry;
    node.params["rot"] = k.rot;
    if (H && !node.shape.empty()) {
      const auto& h = *H;
      auto map = [&](Point p) {
        double x = h[0] * p.x + h[1] * p.y + h[2], y = h[3] * p.x + h[4] * p.y + h[5];
        const double w = h[6] * p.x + h[7] * p.y + h[8];
        if (std::abs(w) > 1e-12) x /= w, y /= w;
        return Point{x, y};
      };
      for (SplinePoint& s : node.shape) {
        const Point p = map(s.p), in = map({s.p.x + s.inT.x, s.p.y + s.inT.y}), out = map({s.p.x + s.outT.x, s.p.y + s.outT.y});
        s = {p, {in.x - p.x, in.y - p.y}, {out.x - p.x, out.y - p.y}};
      }
    }
    node.planarH.clear();
    node.track.clear();
    node.trackOff.clear();
    node.trackRef.reset();
  });
  roto.trackDots.clear();
}

std::optional<int> AppModel::shapeAddPoint(const Uuid& nodeID, Point at) {
  const Node* n = nodeByID(nodeID);
  if (!n) return std::nullopt;
  if (n->shape.empty() && (!n->track.empty() || !n->planarH.empty())) {
    clearTrack(nodeID);  // drawing anew on a tracked node starts from a still mask
    n = nodeByID(nodeID);
  }
  const MaskKey here = key(resolved(*n));
  const Point base = (n->shapeBase && !n->shape.empty()) ? toBase(*n, at) : at;
  int index = 0;
  editShape(nodeID, [&](Node& node) {
    if (!node.shapeBase || node.shape.empty()) {
      node.ellipse = false;
      node.shapeBase = here;
      node.shapeClosed = false;
      node.shape.clear();
    }
    node.shape.push_back({base, {}, {}});
    index = int(node.shape.size()) - 1;
  });
  roto.selectedPoint = index;
  roto.selectedPoints.clear();
  return index;
}

void AppModel::shapeInsertPoint(const Uuid& nodeID, int segment, double t) {
  const Node* n = nodeByID(nodeID);
  if (!n || segment < 0 || segment >= int(n->shape.size())) return;
  editShape(nodeID, [&](Node& node) { node.shape = Roto::split(node.shape, segment, t); });
  roto.selectedPoint = segment + 1;
}

void AppModel::shapeMovePoint(const Uuid& nodeID, int index, Point to) {
  const Node* n = nodeByID(nodeID);
  if (!n || index < 0 || index >= int(n->shape.size())) return;
  const Point base = toBase(*n, to);
  editShape(nodeID, [&](Node& node) { node.shape[index].p = base; });
}

void AppModel::shapeMovePoints(const Uuid& nodeID, const std::map<int, Point>& starts, double dx, double dy) {
  const Node* n = nodeByID(nodeID);
  if (!n) return;
  std::map<int, Point> moved;
  for (const auto& [i, start] : starts)
    if (i >= 0 && i < int(n->shape.size())) moved[i] = toBase(*n, {start.x + dx, start.y + dy});
  editShape(nodeID, [&](Node& node) {
    for (const auto& [i, p] : moved) node.shape[i].p = p;
  });
}

void AppModel::shapeSetTangent(const Uuid& nodeID, int index, Point out, bool isOut, bool mirror) {
  const Node* n = nodeByID(nodeID);
  if (!n || index < 0 || index >= int(n->shape.size())) return;
  const Point p = resolvedMask(*n).shape[index].p;  // the anchor as displayed
  const Point a = toBase(*n, p), b = toBase(*n, {p.x + out.x, p.y + out.y});
  const Point d{b.x - a.x, b.y - a.y};
  editShape(nodeID, [&](Node& node) {
    SplinePoint& s = node.shape[index];
    (isOut ? s.outT : s.inT) = d;
    if (mirror) (isOut ? s.inT : s.outT) = {-d.x, -d.y};
  });
}

void AppModel::shapeToggleSmooth(const Uuid& nodeID, int index) {
  editShape(nodeID, [&](Node& node) { toggleSmooth(node.shape, node.shapeClosed, index); });
}

void AppModel::shapeDeletePoint(const Uuid& nodeID, int index) {
  const Node* n = nodeByID(nodeID);
  if (!n || index < 0 || index >= int(n->shape.size())) return;
  editShape(nodeID, [&](Node& node) {
    node.shape.erase(node.shape.begin() + index);
    if (node.shape.size() < 3) node.shapeClosed = false;
  });
  roto.selectedPoint.reset();
  roto.selectedPoints.clear();
}

void AppModel::shapeClose(const Uuid& nodeID) {
  const Node* n = nodeByID(nodeID);
  if (!n || n->shape.size() < 3) return;
  editShape(nodeID, [](Node& node) { node.shapeClosed = true; });
  roto.rotoTool = RotoTool::select;
}

void AppModel::shapeClear(const Uuid& nodeID) {
  const Node* n = nodeByID(nodeID);
  if (!n) return;
  if (!n->track.empty() || !n->planarH.empty()) clearTrack(nodeID);
  editShape(nodeID, [](Node& node) {
    node.shape.clear();
    node.shapeClosed = false;
    node.shapeBase.reset();
  });
  roto.selectedPoint.reset();
  roto.selectedPoints.clear();
  roto.rotoTool = RotoTool::bezier;
}

void AppModel::startEllipse(const Uuid& nodeID, Point at) {
  const double W = std::max(1, _compSize.width), H = std::max(1, _compSize.height);
  editShape(nodeID, [&](Node& node) {
    node.ellipse = true;
    node.params["cx"] = at.x * 100;
    node.params["cy"] = at.y * 100;
    node.params["rx"] = 8;
    node.params["ry"] = 8 * W / H;
    node.params["rot"] = 0;
  });
}

void AppModel::setRotoTool(RotoTool tool) {
  roto.rotoTool = tool;
  const std::optional<Uuid> target = inspectedID ? inspectedID : rotoNode();
  if (tool != RotoTool::ellipse || !target) return;
  if (const Node* n = nodeByID(*target); isMask(n) && n->shape.empty() && !n->ellipse)
    editShape(*target, [](Node& node) { node.ellipse = true; });
}

void AppModel::iKey() {
  const double now = scheduler_->now();
  const bool second = now - lastIKey_ < 0.35;
  lastIKey_ = second ? -1e9 : now;
  if (!second) {
    _overlaysHidden = !_overlaysHidden;
    _status = _overlaysHidden ? "Repères masqués · I pour les revoir · double I : seulement la sélection" : "";
    return;
  }
  _overlaysHidden = !_overlaysHidden;  // the first press of a pair only announced it
  const std::optional<Uuid> target = inspectedID ? inspectedID : _selected;
  const Node* n = target ? nodeByID(*target) : nullptr;
  if (isMask(n)) {
    toggleMaskIsolate();
  } else if (_viewLocked) {
    _viewLocked = false;
    _viewedNode.reset();
    _status = "Viewer : suit à nouveau la sélection";
    requestRender();
  } else if (n) {
    _viewedNode = n->id;
    _viewLocked = true;
    _status = "Viewer concentré sur " + n->title() + " · double I pour revenir";
    requestRender();
  }
}

std::optional<Uuid> AppModel::rotoNode() const {
  for (const auto& id : {displayedNodeID(), _selected})
    if (id)
      if (const Node* n = nodeByID(*id); isMask(n)) return id;
  return std::nullopt;
}

}  // namespace ombrik
