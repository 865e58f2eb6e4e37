// The masks of a mask node: the active mask lives in the node's own fields, the others in `masks`.
#include <algorithm>

#include "graph/node.h"

namespace ombrik {

const std::vector<std::string>& Node::maskParamKeys() {
  static const std::vector<std::string> keys = {"cx",      "cy",      "rx",        "ry",       "rot",
                                                "feather", "invert",  "blend",     "trk_pos",  "trk_rot",
                                                "trk_scale", "trk_skew", "trk_persp", "out"};
  return keys;
}

GMask Node::activeMask() const {
  GMask m;
  for (const auto& key : maskParamKeys()) m.params[key] = value(key);
  m.track = track;
  m.pins = pins;
  m.trackOff = trackOff;
  m.trackRef = trackRef;
  m.planarH = planarH;
  m.shape = shape;
  m.shapeClosed = shapeClosed;
  m.shapeBase = shapeBase;
  m.ellipse = ellipse;
  return m;
}

std::vector<GMask> Node::allMasks() const {
  if (masks.empty()) return {activeMask()};
  std::vector<GMask> all = masks;
  all[std::min<int>(int(all.size()) - 1, std::max(maskIndex, 0))] = activeMask();
  return all;
}

void Node::loadMask(const GMask& mask) {
  for (const auto& key : maskParamKeys()) {
    auto it = mask.params.find(key);
    double v = 0;
    if (it != mask.params.end()) v = it->second;
    else if (kind)
      if (const ParamSpec* spec = kind->param(key)) v = spec->def;
    params[key] = v;
  }
  track = mask.track;
  pins = mask.pins;
  trackOff = mask.trackOff;
  trackRef = mask.trackRef;
  planarH = mask.planarH;
  shape = mask.shape;
  shapeClosed = mask.shapeClosed;
  shapeBase = mask.shapeBase;
  ellipse = mask.ellipse;
}

GMask Node::freshMask() const {
  GMask m;
  for (const auto& key : maskParamKeys()) {
    const ParamSpec* spec = kind ? kind->param(key) : nullptr;
    m.params[key] = spec ? spec->def : 0;
  }
  return m;
}

std::vector<int> Node::maskOutputs() const {
  std::vector<int> out;
  if (!kind || kind->id != "mask" || masks.size() < 2 || !on("mouts")) return out;
  const auto all = allMasks();
  for (int i = 0; i < int(all.size()); ++i) {
    auto it = all[i].params.find("out");
    if (it == all[i].params.end() || it->second > 0.5) out.push_back(i);
  }
  return out;
}

GMask Node::sourceMask(int fromPort) const {
  if (fromPort >= 2) {
    const auto all = allMasks();
    if (fromPort - 2 < int(all.size())) return all[fromPort - 2];
  }
  return activeMask();
}

}  // namespace ombrik
