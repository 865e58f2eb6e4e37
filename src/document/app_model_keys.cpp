// Keys of animated parameters: reading curves into resolved copies, and every key operation.
#include <algorithm>
#include <set>

#include "document/app_model.h"
#include "document/key_anim.h"
#include "groups/node_group.h"

namespace ombrik {

namespace {

std::vector<Keyframe>* keysOf(Node* node, const std::string& key) {
  if (!node) return nullptr;
  auto it = node->anim.find(key);
  return it == node->anim.end() ? nullptr : &it->second;
}

Keyframe newKey(std::int64_t frame, double value, KeyInterp interp) {
  Keyframe k;
  k.f = frame;
  k.v = value;
  k.interp = interp;
  return k;
}

void flatHandle(Keyframe& k, bool out) {
  (out ? k.outInf : k.inInf) = 1.0 / 3.0;
  (out ? k.outSlope : k.inSlope) = 0;
}

}  // namespace

Node* AppModel::nodeByID(const Uuid& id) {
  for (auto& n : _nodes)
    if (n.id == id) return &n;
  return nullptr;
}

const Node* AppModel::nodeByID(const Uuid& id) const {
  for (const auto& n : _nodes)
    if (n.id == id) return &n;
  return nullptr;
}

Node AppModel::animated(const Node& node, std::optional<int> frame) const {
  if (node.anim.empty()) return node;
  const double f = double(frame ? *frame : evalFrameOverride ? *evalFrameOverride : _currentFrame);
  Node copy = node;
  for (const auto& [key, ks] : node.anim)
    if (!ks.empty()) copy.params[key] = KeyAnim::value(ks, f);
  return copy;
}

Node AppModel::resolved(const Node& node) const {
  if (node.kind && node.kind->id == "mask") {
    Node r = resolvedMask(node);
    r.maskLayers = maskLayersAt(node);
    r.maskSolo = roto.maskIsolate && isSelected(node.id) && !rendering;
    resolveAIResult(r, evalFrameOverride ? *evalFrameOverride : _currentFrame);
    return r;
  }
  Node r = animated(node);
  resolveAIResult(r, evalFrameOverride ? *evalFrameOverride : _currentFrame);
  if (r.group) {  // the inner nodes at this frame too: their own keys and masks
    NodeGroup& g = r.group.mutate();
    for (auto& inner : g.nodes) inner = resolved(inner);
  }
  return r;
}

double AppModel::currentValue(std::size_t nodeIndex, const std::string& key) const {
  if (nodeIndex >= _nodes.size()) return 0;
  const Node r = resolved(_nodes[nodeIndex]);
  if (auto it = r.params.find(key); it != r.params.end()) return it->second;
  if (r.kind)
    if (const ParamSpec* spec = r.kind->param(key)) return spec->def;
  return 0;
}

void AppModel::toggleAnim(const Uuid& id, const std::string& key) {
  Node* node = nodeByID(id);
  if (!node) return;
  const double v = currentValue(std::size_t(node - _nodes.data()), key);
  if (node->anim.erase(key)) node->params[key] = v;  // the value on screen becomes the constant
  else node->anim[key] = {newKey(_currentFrame, v, KeyInterp::linear)};
  invalidatePlayCache();
  nodesChanged();
}

void AppModel::setKey(const Uuid& id, const std::string& key, std::int64_t frame, double value) {
  Node* node = nodeByID(id);
  if (!node) return;
  auto& ks = node->anim[key];
  for (auto& k : ks)
    if (k.f == frame) {
      k.v = value;  // style and handles stay
      nodesChanged();
      return;
    }
  // A key inserted in a Bézier or held stretch keeps that style.
  KeyInterp interp = KeyInterp::linear;
  for (const auto& k : ks)
    if (k.f < frame) interp = k.interp;
  ks.push_back(newKey(frame, value, interp));
  std::sort(ks.begin(), ks.end(), [](const Keyframe& a, const Keyframe& b) { return a.f < b.f; });
  nodesChanged();
}

void AppModel::toggleKey(const Uuid& id, const std::string& key) {
  Node* node = nodeByID(id);
  auto* ks = keysOf(node, key);
  if (!ks) return;
  auto at = std::find_if(ks->begin(), ks->end(), [&](const Keyframe& k) { return k.f == _currentFrame; });
  if (at == ks->end()) {
    setKey(id, key, _currentFrame, KeyAnim::value(*ks, double(_currentFrame)));
    invalidatePlayCache();
    return;
  }
  if (ks->size() == 1) {
    toggleAnim(id, key);
    return;
  }
  ks->erase(at);
  invalidatePlayCache();
  nodesChanged();
}

void AppModel::deleteKey(const Uuid& id, const std::string& key, int index) {
  auto* ks = keysOf(nodeByID(id), key);
  if (!ks || index < 0 || index >= int(ks->size())) return;
  if (ks->size() == 1) {
    toggleAnim(id, key);
    return;
  }
  ks->erase(ks->begin() + index);
  invalidatePlayCache();
  nodesChanged();
}

void AppModel::moveKey(const Uuid& id, const std::string& key, int index, std::int64_t frame, double value) {
  auto* ks = keysOf(nodeByID(id), key);
  if (!ks || index < 0 || index >= int(ks->size())) return;
  // Keys never cross or meet; the last one may go past the end of the world.
  const std::int64_t lo = index > 0 ? (*ks)[index - 1].f + 1 : 0;
  const std::int64_t hi = index + 1 < int(ks->size()) ? (*ks)[index + 1].f - 1
                                                       : std::max({frame, std::int64_t(_frameCount) - 1, std::int64_t(0)});
  (*ks)[index].f = std::min(std::max(lo, frame), std::max(lo, hi));
  (*ks)[index].v = value;
  nodesChanged();
}

void AppModel::setHandle(const Uuid& id, const std::string& key, int index, bool isOut, double inf, double slope) {
  auto* ks = keysOf(nodeByID(id), key);
  if (!ks || index < 0 || index >= int(ks->size())) return;
  Keyframe& k = (*ks)[index];
  if (isOut) {
    k.outInf = inf;
    k.outSlope = slope;
    k.interp = KeyInterp::bezier;
  } else {
    k.inInf = inf;
    k.inSlope = slope;
    if (index > 0) (*ks)[index - 1].interp = KeyInterp::bezier;  // the segment that arrives here
  }
  nodesChanged();
}

void AppModel::setKeyStyle(const Uuid& id, const std::string& key, int index, KeyStyle style) {
  auto* ks = keysOf(nodeByID(id), key);
  if (!ks || index < 0 || index >= int(ks->size())) return;
  Keyframe& k = (*ks)[index];
  Keyframe* prev = index > 0 ? &(*ks)[index - 1] : nullptr;
  Keyframe* next = index + 1 < int(ks->size()) ? &(*ks)[index + 1] : nullptr;
  switch (style) {
    case KeyStyle::linear:
      k.interp = KeyInterp::linear;
      if (prev) prev->interp = KeyInterp::linear;
      break;
    case KeyStyle::smooth: {
      if (prev) prev->interp = KeyInterp::bezier;
      k.interp = KeyInterp::bezier;
      const double s = prev && next && prev->f < next->f ? (next->v - prev->v) / double(next->f - prev->f) : 0.0;
      k.inSlope = k.outSlope = s;
      k.inInf = k.outInf = 1.0 / 3.0;
      break;
    }
    case KeyStyle::ease:
      if (prev) prev->interp = KeyInterp::bezier;
      k.interp = KeyInterp::bezier;
      flatHandle(k, true);
      flatHandle(k, false);
      break;
    case KeyStyle::easeIn:
      if (prev) prev->interp = KeyInterp::bezier;
      flatHandle(k, false);
      break;
    case KeyStyle::easeOut:
      k.interp = KeyInterp::bezier;
      flatHandle(k, true);
      break;
    case KeyStyle::hold:
      k.interp = KeyInterp::hold;
      break;
  }
  invalidatePlayCache();
  nodesChanged();
}

void AppModel::applyKeyStyle(KeyStyle style) {
  if (!inspectedID) return;
  const Node* node = nodeByID(*inspectedID);
  if (!node) return;
  std::vector<KeySel> targets;
  for (const auto& sel : _keySel)
    if (auto it = node->anim.find(sel.key); it != node->anim.end() && sel.i >= 0 && sel.i < int(it->second.size()))
      targets.push_back(sel);
  if (targets.empty())
    for (const auto& [key, ks] : node->anim)
      for (int i = 0; i < int(ks.size()); ++i) targets.push_back({key, i});
  const Uuid id = *inspectedID;
  for (const auto& t : targets) setKeyStyle(id, t.key, t.i, style);
}

void AppModel::deleteSelectedKeys() {
  if (!inspectedID) return;
  std::vector<KeySel> order(_keySel.begin(), _keySel.end());
  // By key, then by index from the highest, so a removal never shifts one still to come.
  std::sort(order.begin(), order.end(), [](const KeySel& a, const KeySel& b) {
    return a.key != b.key ? a.key < b.key : a.i > b.i;
  });
  const Uuid id = *inspectedID;
  for (const auto& sel : order) deleteKey(id, sel.key, sel.i);
  _keySel.clear();
}

AppModel::Binding AppModel::binding(const Uuid& id, const std::string& key) {
  Binding b;
  b.get = [this, id, key] {
    for (std::size_t i = 0; i < _nodes.size(); ++i)
      if (_nodes[i].id == id) return currentValue(i, key);
    return 0.0;
  };
  b.set = [this, id, key](double value) {
    Node* node = nodeByID(id);
    if (!node) return;
    if (node->anim.count(key)) {
      setKey(id, key, _currentFrame, value);
      return;
    }
    // A tracked mask moves its whole track with the hand. The AI refinement of a mask joins here
    // with the AI tools.
    static const std::set<std::string> trackKeys = {"cx", "cy", "rx", "ry", "rot"};
    if (!node->track.empty() && trackKeys.count(key)) {
      setMaskParams(id, {{key, value}});
      return;
    }
    node->params[key] = value;
    nodesChanged();
  };
  return b;
}

}  // namespace ombrik
