#include "editorial/timeline_codec.h"

#include <nlohmann/json.hpp>

#include "platform/json_fields.h"

namespace ombrik::timelinecodec {

using namespace jsonfields;

namespace {

json sourceJ(const LayerSource& s) { return {{s.isBatch() ? "batch" : "media", {{"_0", s.id.toString()}}}}; }

LayerSource sourceFrom(const json& v) {
  if (object(v).size() != 1) throw Unreadable("Invalid number of keys found, expected one.");
  const auto only = v.begin();
  const std::string& key = only.key();
  if (key != "media" && key != "batch") throw Unreadable("source de calque inconnue : " + key);
  return {key == "batch" ? LayerSource::Kind::batch : LayerSource::Kind::media, uuid(field(only.value(), "_0"))};
}

json layerJ(const TLayer& l) {
  return {{"id", l.id.toString()}, {"name", l.name},       {"source", sourceJ(l.source)},
          {"start", l.start},      {"inPoint", l.inPoint}, {"length", l.length},
          {"enabled", l.enabled},  {"opacity", l.opacity}, {"blend", l.blend}};
}

TLayer layerFrom(const json& v) {
  TLayer l;
  l.id = uuid(field(v, "id"));
  l.name = text(field(v, "name"));
  l.source = sourceFrom(field(v, "source"));
  l.start = int32(field(v, "start"));
  l.inPoint = int32(field(v, "inPoint"));
  l.length = int32(field(v, "length"));
  l.enabled = boolean(field(v, "enabled"));
  l.opacity = number(field(v, "opacity"));
  l.blend = int32(field(v, "blend"));
  return l;
}

}  // namespace

json encode(const std::vector<Timeline>& timelines) {
  json out = json::array();
  for (const auto& t : timelines) {
    json layers = json::array();
    for (const auto& l : t.layers) layers.push_back(layerJ(l));
    json j = {{"id", t.id.toString()}, {"name", t.name},     {"fps", t.fps},
              {"width", t.width},      {"height", t.height}, {"layers", layers}};
    if (t.fixedDuration) j["fixedDuration"] = *t.fixedDuration;
    if (t.background) j["background"] = *t.background;
    if (t.filmPath) j["filmPath"] = *t.filmPath;
    out.push_back(std::move(j));
  }
  return out;
}

std::vector<Timeline> decode(const json& v) {
  std::vector<Timeline> out;
  for (const auto& j : array(v)) {
    Timeline t;
    t.id = uuid(field(j, "id"));
    t.name = text(field(j, "name"));
    t.fps = number(field(j, "fps"));
    t.width = int32(field(j, "width"));
    t.height = int32(field(j, "height"));
    for (const auto& l : array(field(j, "layers"))) t.layers.push_back(layerFrom(l));
    if (auto* d = optField(j, "fixedDuration")) t.fixedDuration = int32(*d);
    if (auto* b = optField(j, "background")) t.background = numbers(*b);
    if (auto* p = optField(j, "filmPath")) t.filmPath = text(*p);
    out.push_back(std::move(t));
  }
  return out;
}

}  // namespace ombrik::timelinecodec
