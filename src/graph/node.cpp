#include "graph/node.h"

#include <algorithm>
#include <cmath>

#include "groups/node_group.h"

namespace ombrik {

Node::Node(KindRef k, Uuid nodeID) : id(nodeID), kind(std::move(k)) {
  if (!kind) return;
  for (const auto& spec : kind->params) params.emplace(spec.key, spec.def);
}

double Node::value(std::string_view key) const {
  if (auto it = params.find(std::string(key)); it != params.end()) return it->second;
  if (kind)
    if (const ParamSpec* spec = kind->param(key)) return spec->def;
  return 0;
}

float Node::p(std::string_view key) const { return static_cast<float>(value(key)); }

bool Node::on(std::string_view key) const { return value(key) > 0.5; }

std::string Node::title() const {
  if (!name.empty()) return name;
  return kind ? kind->title.value() : std::string();
}

int Node::inputCount() const {
  if (!kind) return 0;
  const int ports = static_cast<int>(kind->inputs.size());
  if (kind->id != "comp") return ports;
  const long mattes = std::lround(p("mattes"));
  return std::min<long>(ports, 2 + std::max(1L, mattes));
}

bool Node::operator==(const Node& o) const {
  return id == o.id && kind == o.kind && group == o.group && params == o.params && bypass == o.bypass &&
         mediaID == o.mediaID && track == o.track && pins == o.pins && trackOff == o.trackOff &&
         keySamples == o.keySamples && trackers == o.trackers && stabM == o.stabM &&
         trackerLinks == o.trackerLinks && followPts == o.followPts && followSrc == o.followSrc &&
         shape == o.shape && shapeClosed == o.shapeClosed && shapeBase == o.shapeBase && ellipse == o.ellipse &&
         magicPoints == o.magicPoints && magicFrame == o.magicFrame && magicFile == o.magicFile &&
         magicDirPath == o.magicDirPath && cacheFile == o.cacheFile && retimeSource == o.retimeSource &&
         magicCur == o.magicCur && prompt == o.prompt && path == o.path && mesh == o.mesh &&
         meshBase == o.meshBase && meshTrack == o.meshTrack && meshNow == o.meshNow &&
         meshTracked == o.meshTracked && faceStrokes == o.faceStrokes && faceDabs == o.faceDabs &&
         paintLayers == o.paintLayers && paintIndex == o.paintIndex && beautyLayers == o.beautyLayers &&
         zonePolys == o.zonePolys && trackBase == o.trackBase && trackNow == o.trackNow &&
         trackRef == o.trackRef && planarH == o.planarH && masks == o.masks && maskIndex == o.maskIndex &&
         maskLayers == o.maskLayers && maskSolo == o.maskSolo && anim == o.anim &&
         name == o.name;
}

}  // namespace ombrik
